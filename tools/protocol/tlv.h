#pragma once

#include <cstdint>

#include "tools/protocol/bytes.h"

namespace protocol {

/// The one wire layout of the control protocol, in both directions; knows no message.
///
///     offset  size  field (integers big-endian)
///          0     2  tag
///          2     2  L, length of the value in bytes
///          4     L  value: sub-fields in the same layout, one level deep, or plain bytes
struct tlv {
    std::uint16_t tag = 0;
    bytes value;
};

inline constexpr std::size_t tlv_header_bytes = 4;
inline constexpr std::size_t tlv_longest_value_bytes = 0xFFFF;

/// Append one element. A value longer than 65535 bytes is cut to that length.
void append_tlv(bytes& out, int tag, byte_view value);
void append_short(bytes& out, int tag, std::uint16_t value);  ///< 2-byte value

struct tlv_list {
    std::vector<tlv> elements;  ///< every complete element, in order
    bytes rest;                 ///< what follows them: fewer than 4 bytes, or an element that was cut off
};

tlv_list split_tlvs(byte_view data);

}  // namespace protocol
