#include "tools/protocol/tlv.h"

#include <algorithm>

namespace protocol {
namespace {

constexpr std::size_t header_bytes = 4;
constexpr std::size_t longest_value_bytes = 65535;

void append_u16(bytes& out, std::size_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8 & 0xFF));
    out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

std::uint16_t read_u16(byte_view data) {
    return static_cast<std::uint16_t>(data[0] << 8 | data[1]);
}

}  // namespace

void append_tlv(bytes& out, std::uint16_t tag, byte_view value) {
    value = value.first(std::min(value.size(), longest_value_bytes));
    append_u16(out, tag);
    append_u16(out, value.size());
    out.insert(out.end(), value.begin(), value.end());
}

void append_short(bytes& out, std::uint16_t tag, std::uint16_t value) {
    bytes field;
    append_u16(field, value);
    append_tlv(out, tag, field);
}

void append_long(bytes& out, std::uint16_t tag, std::uint32_t value) {
    bytes field;
    append_u16(field, value >> 16);
    append_u16(field, value & 0xFFFF);
    append_tlv(out, tag, field);
}

tlv_list split_tlvs(byte_view data) {
    tlv_list list;
    while (data.size() >= header_bytes) {
        std::size_t const length = read_u16(data.subspan(2));
        if (data.size() < header_bytes + length)
            break;
        byte_view const value = data.subspan(header_bytes, length);
        list.elements.push_back({read_u16(data), bytes(value.begin(), value.end())});
        data = data.subspan(header_bytes + length);
    }
    list.rest.assign(data.begin(), data.end());
    return list;
}

}  // namespace protocol
