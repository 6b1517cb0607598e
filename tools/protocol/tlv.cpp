#include "tools/protocol/tlv.h"

#include <algorithm>

#include "lib/wire.h"

namespace protocol {

void append_tlv(bytes& out, int tag, byte_view value) {
    value = value.first(std::min(value.size(), tlv_longest_value_bytes));
    std::uint8_t header[tlv_header_bytes];
    wire::put16(header, static_cast<std::uint32_t>(tag));
    wire::put16(header + 2, static_cast<std::uint32_t>(value.size()));
    out.insert(out.end(), std::begin(header), std::end(header));
    out.insert(out.end(), value.begin(), value.end());
}

void append_short(bytes& out, int tag, std::uint16_t value) {
    std::uint8_t number[2];
    wire::put16(number, value);
    append_tlv(out, tag, number);
}

tlv_list split_tlvs(byte_view data) {
    tlv_list list;
    while (data.size() >= tlv_header_bytes) {
        std::size_t const length = wire::get16(data.data() + 2);
        if (data.size() < tlv_header_bytes + length)
            break;
        byte_view const value = data.subspan(tlv_header_bytes, length);
        list.elements.push_back({wire::get16(data.data()), {value.begin(), value.end()}});
        data = data.subspan(tlv_header_bytes + length);
    }
    list.rest.assign(data.begin(), data.end());
    return list;
}

}  // namespace protocol
