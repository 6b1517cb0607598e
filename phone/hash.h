#pragma once

#include <string>

namespace fxsphone {

/// Gives the bytes of a text's hash.
using hash_function = std::string (*)(std::string const& text);

/// The hash function of a challenge's algorithm: MD5, also for an empty name (RFC 7616 section 3.3), or SHA-256, which
/// is there in a build with TLS only. nullptr: not one of ours.
hash_function hash_of(std::string const& algorithm);

}  // namespace fxsphone
