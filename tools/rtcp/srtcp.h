#pragma once

#include <optional>

#include "tools/protocol/bytes.h"

/// SRTCP packets (RFC 3711 section 3.4), opened with the process's own cipher.
namespace rtcp_view {

struct srtcp_key {
    protocol::bytes material;  ///< 16 bytes master key, 14 bytes master salt
    protocol::bytes mki;       ///< before the tag, may be empty
};

/// The RTCP packet inside, without index, MKI and tag; also when it is only authenticated. nullopt when the tag is not
/// this key's (10 bytes, whatever SRTP's length: RFC 4568 section 6.2), or the index is above 65535 (36 hours of
/// reports), which the cipher does not reach. Not thread-safe.
std::optional<protocol::bytes> open_srtcp(srtcp_key const& key, protocol::byte_view packet);

}  // namespace rtcp_view
