#include "lib/tlv.h"

#include "lib/bytes.h"

str cmd_get_tlv_short(int tag, int value) {
    return cmd_get_tlv_str(tag, utils::int2str(static_cast<unsigned>(value), 2));
}

str cmd_get_tlv_long(int tag, int value) {
    return cmd_get_tlv_str(tag, utils::int2str(static_cast<unsigned>(value), 4));
}

str cmd_get_tlv_str(int tag, str const& value) {
    return utils::int2str(static_cast<unsigned>(tag), 2) + utils::int2str(static_cast<unsigned>(value.length()), 2) +
           value;
}

str cmd_get_tlv_short_str(int tag, str const& text, int value) {
    return cmd_get_tlv_str(tag, utils::int2str(static_cast<unsigned>(value), 2) + text);
}

str cmd_get_tlv_address(int tag, ip_port const& endpoint) {
    return cmd_get_tlv_short_str(tag, endpoint.address, endpoint.port);
}

bool tlv::take(str& data) {
    if (data.length() < tlv_header_bytes)
        return false;
    int const length = str2int16(data.substr(2, 2));
    if (data.length() < tlv_header_bytes + length)
        return false;
    tag = str2int16(data);
    value = data.substr(tlv_header_bytes, length);
    data = data.substr(tlv_header_bytes + length);
    return true;
}

ip_port tlv::get_address() const {
    return ip_port(value.substr(2), str2int16(value));
}
