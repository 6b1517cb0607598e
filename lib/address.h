#pragma once

#include <netinet/in.h>

#include "lib/str.h"

/// A network endpoint: an address in its compact binary form and a port.
class ip_port {
public:
    constexpr ip_port() : port(0) {}
    ip_port(str const& compact_address, int host_order_port) : address(compact_address), port(host_order_port) {}

    /// No address or port 0.
    bool empty() const { return address.empty() || port == 0; }
    void clear();
    bool operator==(ip_port const& other) const { return port == other.port && address.cmp(other.address); }
    bool operator!=(ip_port const& other) const { return !(*this == other); }

    str address;  ///< network byte order: 4 bytes IPv4, 16 bytes IPv6, empty when there is none
    int port;     ///< host order
};

/// Which address families the process uses; the start-up options set them.
extern bool ipv4;
extern bool ipv6;

/// How a connection is carried.
struct transport_type {
    enum value { udp = 1, tcp = 2, tls = 3 };

    static str c_udp;  ///< "udp"
    static str c_tcp;  ///< "tcp"
    static str c_tls;  ///< "tls"

    transport_type(int type) : transport(type) {}
    /// One of the three names; empty for any other value.
    str serialize() const;

    int transport;
};

namespace utils {

inline bool ipv4(str const& address) {
    return address.length() == 4;
}
inline bool ipv6(str const& address) {
    return address.length() == 16;
}

/// Address text to its compact form. IPv6 when a ":" comes before any ".", in brackets or not; otherwise
/// IPv4. Nothing is validated: a field of "300" gives 44, a host name 0.0.0.0.
str compact_ip(str const& text);
/// Compact form to text; IPv6 in "[" and "]" when brackets is set. Any other length than 4 and 16 prints as
/// 0.0.0.0.
str readable_ip(str const& address, bool brackets);
/// "address:port", IPv6 in brackets.
str readable_ip(ip_port const& endpoint);
/// "transport:address:port", IPv6 in brackets.
str readable_ip(ip_port const& endpoint, transport_type const& transport);
/// Whether text is a name that must be looked up: neither an IPv6 literal (in brackets, or only hex digits
/// and at least two ":") nor four decimal fields of 0..255.
bool is_host_name(str const& text);

/// Fills a socket address (zeroed first). An empty address gives the any-address. False when the address has
/// the length of neither nothing nor the family; the structure then holds the any-address.
bool conv4(ip_port const& endpoint, sockaddr_in& out);
bool conv6(ip_port const& endpoint, sockaddr_in6& out);

/// The socket address of an endpoint: IPv6 for an address of 16 bytes, else IPv4.
struct socket_address {
    explicit socket_address(ip_port const& endpoint);

    union {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    };
    socklen_t length;
    bool usable;  ///< false where conv4() and conv6() say so
};

}  // namespace utils
