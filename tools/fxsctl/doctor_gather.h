#pragma once

#include <optional>

#include "tools/doctor/observation.h"
#include "tools/fxsctl/settings.h"

namespace fxsctl {

/// Watches the process and its calls (all open ones, or one) for so many seconds. Never throws for what a doctor is
/// there to find: a process that is absent or mute is a result. Throws refused when the one call is not open, local
/// when no socket can be had.
doctor::observation gather(settings const& global, std::optional<std::uint16_t> call, double seconds);

}  // namespace fxsctl
