#include "media/media_port.h"

#include <initializer_list>

#include <netinet/in.h>
#include <sys/socket.h>

#include "lib/log.h"
#include "lib/random.h"
#include "lib/sockets.h"
#include "media/tcp_framing.h"

namespace {

constexpr int random_attempts = 8;
constexpr int smallest_random_span = 3;  // below it there is one pair at most

void close_socket(int& fd) {
    if (utils::valid_socket(fd))
        utils::close_udp_socket(fd);
    fd = -1;
}

/// Most datagrams come from the source and share its address.
template <typename receiving>
media_port::datagram received(int fd, ip_port const& source, receiving const& receive) {
    media_port::datagram got{.data = str(), .from = source, .stamp = rtimestamp()};
    got.data = receive(fd, got.from, &got.stamp);
    if (got.data.empty())
        got.from.clear();
    return got;
}

}  // namespace

bool media_port::open_pair(media_port& rtp, media_port& rtcp, int lowest, int end) {
    rtp.close();
    rtcp.close();
    int const base = (lowest + 1) & ~1;
    int const span = end - lowest;
    for (int attempt = 0; span >= smallest_random_span && attempt < random_attempts; attempt++)
        if (try_pair(rtp, rtcp, base + 2 * (utils::rand() % (span / 2))))
            return true;
    for (int port = base; port < end; port += 2)
        if (try_pair(rtp, rtcp, port))
            return true;
    return false;
}

/// Opens this port and the one above it, or none.
bool media_port::try_pair(media_port& rtp, media_port& rtcp, int port) {
    log_line(9, "Trying to open ports %d and %d", arg_int(port), arg_int(port + 1));
    bool const rtp_open = rtp.open(port);
    bool const rtcp_open = rtcp.open(port + 1);
    if (rtp_open && rtcp_open)
        return true;
    rtp.close();
    rtcp.close();
    return false;
}

/// All sockets of the families in use; false when one could not be had.
bool media_port::open(int port) {
    if (ipv4)
        fd4 = utils::open_udp_socket(port, false);
    if (ipv6)
        fd6 = utils::open_udp_socket(port, true);
    for (int const fd : {fd4, fd6})
        if (utils::valid_socket(fd))
            utils::start_stamping(fd);
    number = port;
    return (!ipv4 || utils::valid_socket(fd4)) && (!ipv6 || utils::valid_socket(fd6));
}

void media_port::close() {
    close_socket(fd4);
    close_socket(fd6);
    connection.close();
    number = 0;
}

void media_port::reset() {
    close();
    *this = media_port(name);
}

/// The IPv6 socket is given the IPv4 option too.
void media_port::set_type_of_service(int tos) const {
    if (tos == 0)
        return;
    for (int const fd : {fd4, fd6})
        if (utils::valid_socket(fd))
            setsockopt(fd, IPPROTO_IP, IP_TOS, &tos, sizeof tos);
}

void media_port::set_destination(ip_port const& to, bool tcp) {
    over_tcp = tcp;
    if (tcp) {
        connection.connect(to, false);
    } else {
        destination = to;
        destination_address = utils::socket_address(to);
    }
}

media_port::datagram media_port::receive4() const {
    return received(fd4, source, utils::recv_udp_packet4);
}

media_port::datagram media_port::receive6() const {
    return received(fd6, source, utils::recv_udp_packet6);
}

int media_port::send(str const& packet) {
    if (!over_tcp) {
        send_to_destination(packet);
    } else if (connection.is_open()) {
        str const frame = frame_for_tcp(packet);
        connection.send(frame);
        return frame.length();
    }
    return packet.length();
}

void media_port::send_or_queue(str const& packet) {
    if (over_tcp)
        connection.queue(frame_for_tcp(packet));
    else
        send_to_destination(packet);
}

void media_port::send_bare(ip_port const& to, str const& data, bool tcp) {
    ip_port const target = !to.empty() ? to : tcp ? connection.get_peer() : destination;
    if (target.empty())
        return;
    if (!tcp) {
        send_datagram(target, data);
        return;
    }
    connection.connect(target, true);
    connection.queue(data);
}

void media_port::send_to_destination(str const& data) const {
    if (utils::ipv4(destination.address))
        utils::send_udp_packet(fd4, destination_address, data);
    else if (utils::ipv6(destination.address))
        utils::send_udp_packet(fd6, destination_address, data);
}

void media_port::send_datagram(ip_port const& to, str const& data) const {
    if (utils::ipv4(to.address))
        utils::send_udp_packet(fd4, to, data);
    else if (utils::ipv6(to.address))
        utils::send_udp_packet(fd6, to, data);
}

bool media_port::latch_source(ip_port const& from) {
    if (!source.empty() && source != from)
        return false;
    source = from;
    return true;
}
