#pragma once

// What libre's headers expect of whoever includes them.
#include <cstddef>
#include <cstdint>
#include <string>
#ifndef HAVE_STDBOOL_H
#define HAVE_STDBOOL_H 1
#endif

// Debian builds libre with OpenSSL; its headers want to be told.
#ifndef USE_OPENSSL
#define USE_OPENSSL 1
#endif

#include <re.h>

namespace fxsphone {

/// A part of a message; empty when it is not there.
inline std::string text_of(pl const& part) {
    return part.p == nullptr ? std::string() : std::string(part.p, part.l);
}

}  // namespace fxsphone
