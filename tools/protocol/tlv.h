// The one wire layout of the control protocol, in both directions; knows no message.
//
//   offset  size  field (integers big-endian)
//        0     2  tag
//        2     2  L, length of the value in bytes
//        4     L  value: sub-fields in the same layout, one level deep, or plain bytes
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/protocol/hex.h"

namespace protocol {

struct tlv {
    std::uint16_t tag = 0;
    bytes value;
};

// Appends one element to `out`. A value longer than 65535 bytes is cut to that length.
void append_tlv(bytes& out, std::uint16_t tag, byte_view value);
void append_short(bytes& out, std::uint16_t tag, std::uint16_t value);  // 2-byte value
void append_long(bytes& out, std::uint16_t tag, std::uint32_t value);   // 4-byte value

struct tlv_list {
    std::vector<tlv> elements;  // every complete element, in order
    bytes rest;                 // what follows them: fewer than 4 bytes, or an element that was cut off
};

tlv_list split_tlvs(byte_view data);

}  // namespace protocol
