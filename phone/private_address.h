#pragma once

#include <fxsmedia/values.h>

namespace fxsphone {

/// Whether an address means something on its own network only: RFC 1918, 6598, 3927 and loopback; RFC 4193, 4291.
inline bool is_private(fxsmedia::endpoint const& one) {
    std::uint8_t const* const ip = one.ip;
    if (one.ip_bytes == 4)
        return ip[0] == 10 || ip[0] == 127 || (ip[0] == 172 && (ip[1] & 0xF0) == 16) ||
               (ip[0] == 192 && ip[1] == 168) || (ip[0] == 100 && (ip[1] & 0xC0) == 64) ||
               (ip[0] == 169 && ip[1] == 254);
    bool const loopback = one.ip_bytes == 16 && one == *fxsmedia::endpoint::from_text("::1", one.port);
    return loopback || (ip[0] & 0xFE) == 0xFC || (ip[0] == 0xFE && (ip[1] & 0xC0) == 0x80);
}

}  // namespace fxsphone
