#include "tools/protocol/address.h"

#include <arpa/inet.h>

#include <charconv>

#include "lib/wire.h"

namespace protocol {

std::optional<bytes> parse_ip(std::string_view text) {
    bool const bracketed = text.size() > 2 && text.front() == '[' && text.back() == ']';
    std::string const plain(bracketed ? text.substr(1, text.size() - 2) : text);
    bytes v4(4);
    bytes v6(16);
    if (!bracketed && inet_pton(AF_INET, plain.c_str(), v4.data()) == 1)
        return v4;
    if (inet_pton(AF_INET6, plain.c_str(), v6.data()) == 1)
        return v6;
    return std::nullopt;
}

std::optional<address> parse_address(std::string_view text) {
    std::size_t const colon = text.rfind(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    std::string_view const host = text.substr(0, colon);
    std::string_view const port_text = text.substr(colon + 1);
    address endpoint;
    auto const [end, error] = std::from_chars(port_text.data(), port_text.data() + port_text.size(), endpoint.port);
    std::optional<bytes> const ip = parse_ip(host);
    bool const complete = error == std::errc() && end == port_text.data() + port_text.size();
    bool const bare_ipv6 = ip && ip->size() == 16 && host.front() != '[';
    if (!ip || bare_ipv6 || !complete || endpoint.port == 0)
        return std::nullopt;
    endpoint.ip = *ip;
    return endpoint;
}

std::string to_text(address const& endpoint) {
    char text[INET6_ADDRSTRLEN] = "";
    bool const v4 = endpoint.ip.size() == 4;
    if (!v4 && endpoint.ip.size() != 16)
        return "none";
    inet_ntop(v4 ? AF_INET : AF_INET6, endpoint.ip.data(), text, sizeof text);
    std::string const port = std::to_string(endpoint.port);
    return v4 ? std::string(text) + ":" + port : "[" + std::string(text) + "]:" + port;
}

std::optional<address> decode_address(byte_view value) {
    if (value.size() != 6 && value.size() != 18)
        return std::nullopt;
    address endpoint;
    endpoint.port = wire::get16(value.data());
    endpoint.ip.assign(value.begin() + 2, value.end());
    return endpoint;
}

}  // namespace protocol
