#pragma once

#include <string>

#include "tools/fxsline/outcome.h"

/// The directory that the lines are mounted on.
namespace fxsline {

/// Type of our mounts in the mount table.
inline constexpr char const* mount_type = "fuse.fxsline";

/// Makes `directory` ready to be mounted on: detaches a mount that a killed run left ("Transport endpoint is not
/// connected"). Gives its absolute path, or says why it can't be mounted on: no directory, or served by another
/// running fxsline.
outcome<std::string> prepare_mount_point(std::string const& directory);

/// What keeps this user from mounting FUSE file systems, or an empty string.
std::string fuse_obstacle();

}  // namespace fxsline
