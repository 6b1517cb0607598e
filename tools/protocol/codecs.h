// Codec numbers of the process, the names by which people ask for them and the payload type they usually
// have.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace protocol {

struct codec_info {
    std::uint8_t number;  // 0 to 7, as the media command carries it
    std::string_view name;
    std::uint8_t payload_type;  // RFC 3551 table 4; where that has none, a dynamic one that is free here
};

inline constexpr std::uint8_t telephone_event_codec = 7;  // can only be received

std::span<codec_info const> codecs();

// By name (either case; "g711a", "g711u" and "event" work too) or by number "0" to "7". nullptr when there is
// none.
codec_info const* find_codec(std::string_view name_or_number);

}  // namespace protocol
