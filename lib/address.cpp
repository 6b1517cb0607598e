#include "lib/address.h"

#include <cstring>

#include "lib/wire.h"

bool ipv4 = true;
bool ipv6 = true;

str transport_type::c_udp("udp");
str transport_type::c_tcp("tcp");
str transport_type::c_tls("tls");

void ip_port::clear() {
    address.clear();
    port = 0;
}

str transport_type::serialize() const {
    switch (transport) {
        case udp: return c_udp;
        case tcp: return c_tcp;
        case tls: return c_tls;
        default: return str::null;
    }
}

namespace {

constexpr int ipv6_bytes = 16;
constexpr int ipv6_groups = 8;

bool in_brackets(str const& text) {
    return text[0] == '[' && text[text.length() - 1] == ']';
}

bool is_hex_digit(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

unsigned hex_digit_value(unsigned char c) {
    if (!is_hex_digit(c))
        return 0;
    return c <= '9' ? c - '0' : (c | 0x20u) - 'a' + 10;
}

str compact_ipv4(str const& text) {
    unsigned char fields[4];
    for (int i = 0; i < 4; i++)
        fields[i] = static_cast<unsigned char>(text.get_field(i, '.').value());
    return str(fields, 4);
}

str compact_ipv6(str const& text) {
    str address;
    unsigned group = 0;  // the last four hex digits seen: older ones are shifted out
    int gap = -1;        // index of the group behind which the missing zero groups belong
    auto const emit = [&] {
        unsigned char bytes[2];
        wire::put16(bytes, group);
        address.append(bytes, sizeof bytes);
        group = 0;
    };
    for (int i = 0; i < text.length(); i++) {
        if (text[i] != ':') {
            group = (group << 4 | hex_digit_value(text[i])) & 0xFFFF;
            continue;
        }
        if (i > 0 && text[i - 1] == ':')
            gap = address.length() / 2;
        emit();
    }
    emit();
    int const missing = ipv6_bytes - address.length();
    if (missing > 0) {
        int const before = gap * 2 + 2;
        address = address.leftstr(before) + str('\0', missing) + address.substr(before);
    }
    return address;
}

struct group_run {
    int first = 0;
    int length = 0;
};

/// The run of zero groups that is written as "::". A later run takes over only when it is longer than twice
/// the candidate.
group_run zero_run(unsigned const (&groups)[ipv6_groups]) {
    group_run chosen;
    for (int i = 0; i < ipv6_groups; i++) {
        group_run run{i, 0};
        while (i < ipv6_groups && groups[i] == 0) {
            run.length++;
            i++;
        }
        if (run.length > 2 * chosen.length)
            chosen = run;
    }
    return chosen;
}

void append_hex(str& text, unsigned group) {
    bool started = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
        unsigned const digit = group >> shift & 15;
        started = started || digit != 0 || shift == 0;
        if (started)
            text += "0123456789abcdef"[digit];
    }
}

str readable_ipv6(str const& address) {
    unsigned groups[ipv6_groups];
    for (int i = 0; i < ipv6_groups; i++)
        groups[i] = str2int16(address.substr(2 * i, 2));
    group_run const gap = zero_run(groups);
    str text;
    for (int i = 0; i < ipv6_groups; i++) {
        if (gap.length > 0 && i == gap.first) {
            text += str("::");
            i += gap.length - 1;
            continue;
        }
        if (i > 0 && i != gap.first + gap.length)
            text += ':';
        append_hex(text, groups[i]);
    }
    return text;
}

bool is_ipv6_literal(str const& text) {
    if (in_brackets(text))
        return true;
    int colons = 0;
    for (int i = 0; i < text.length(); i++) {
        if (text[i] == ':')
            colons++;
        else if (!is_hex_digit(text[i]))
            return false;
    }
    return colons >= 2;
}

bool is_ipv4_literal(str const& text) {
    for (int i = 0; i < 4; i++) {
        str const field = text.get_field(i, '.');
        if (!field.is_number() || field.value() < 0 || field.value() > 255)
            return false;
    }
    return text.get_field(4, '.').empty();
}

}  // namespace

str utils::compact_ip(str const& text) {
    if (text.length() >= 3 && in_brackets(text))
        return compact_ip(text.substr(1, text.length() - 2));
    for (int i = 0; i < text.length(); i++) {
        if (text[i] == ':')
            return compact_ipv6(text);
        if (text[i] == '.')
            break;
    }
    return compact_ipv4(text);
}

str utils::readable_ip(str const& address, bool brackets) {
    if (!ipv6(address)) {
        str const shown = ipv4(address) ? address : str('\0', 4);
        return str::sprintf("%d.%d.%d.%d", shown[0], shown[1], shown[2], shown[3]);
    }
    str const text = readable_ipv6(address);
    return brackets ? str::sprintf("[%s]", arg_str(text)) : text;
}

str utils::readable_ip(ip_port const& endpoint) {
    str const text = readable_ip(endpoint.address, true);
    return str::sprintf("%s:%d", arg_str(text), arg_int(endpoint.port));
}

str utils::readable_ip(ip_port const& endpoint, transport_type const& transport) {
    str const name = transport.serialize();
    str const text = readable_ip(endpoint);
    return str::sprintf("%s:%s", arg_str(name), arg_str(text));
}

bool utils::is_host_name(str const& text) {
    return !is_ipv6_literal(text) && !is_ipv4_literal(text);
}

bool utils::conv4(ip_port const& endpoint, sockaddr_in& out) {
    memset(&out, 0, sizeof out);
    out.sin_family = AF_INET;
    out.sin_port = htons(static_cast<std::uint16_t>(endpoint.port));
    if (ipv4(endpoint.address))
        memcpy(&out.sin_addr, endpoint.address.cbuffer(), sizeof out.sin_addr);
    return endpoint.address.empty() || ipv4(endpoint.address);
}

bool utils::conv6(ip_port const& endpoint, sockaddr_in6& out) {
    memset(&out, 0, sizeof out);
    out.sin6_family = AF_INET6;
    out.sin6_port = htons(static_cast<std::uint16_t>(endpoint.port));
    if (ipv6(endpoint.address))
        memcpy(&out.sin6_addr, endpoint.address.cbuffer(), sizeof out.sin6_addr);
    return endpoint.address.empty() || ipv6(endpoint.address);
}

utils::socket_address::socket_address(ip_port const& endpoint) {
    if (ipv6(endpoint.address)) {
        usable = conv6(endpoint, v6);
        length = sizeof v6;
    } else {
        usable = conv4(endpoint, v4);
        length = sizeof v4;
    }
}
