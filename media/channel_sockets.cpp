#include <initializer_list>

#include <netinet/in.h>
#include <sys/socket.h>

#include "lib/log_line.h"
#include "lib/random.h"
#include "lib/sockets.h"
#include "media/channel.h"

namespace {

constexpr int random_attempts = 8;
constexpr int first_report_ms = 100;
constexpr int smallest_random_span = 3;  // below it there is one pair at most

void close_socket(int& fd) {
    if (utils::valid_socket(fd))
        utils::close_udp_socket(fd);
    fd = -1;
}

/// Opens the socket of one port in the families in use; false when one of them could not be had.
bool open_families(int port, int& fd4, int& fd6) {
    if (ipv4)
        fd4 = utils::open_udp_socket(port, false);
    if (ipv6)
        fd6 = utils::open_udp_socket(port, true);
    if (utils::valid_socket(fd4))
        utils::receive_stamp(fd4);
    if (utils::valid_socket(fd6))
        utils::receive_stamp(fd6);
    return (!ipv4 || utils::valid_socket(fd4)) && (!ipv6 || utils::valid_socket(fd6));
}

}  // namespace

void channel::close_sockets() {
    close_socket(fd_rtp4);
    close_socket(fd_rtcp4);
    close_socket(fd_rtp6);
    close_socket(fd_rtcp6);
    rtp_tcp.close();
    rtcp_tcp.close();
}

void channel::open(int port_min, int port_max, int tos) {
    close_sockets();
    int const base = (port_min + 1) & ~1;
    if (!try_random_ports(base, port_max - port_min) && !scan_ports(base, port_max)) {
        rtp_port = rtcp_port = 0;
        rtcp_timer.clear();
        return;
    }
    set_type_of_service(tos);
    rtcp_timer.callback(rtimestamp::ms2ticks(first_report_ms), callback_argument(send_rtcp_update, id));
}

bool channel::try_random_ports(int base, int span) {
    if (span < smallest_random_span)
        return false;
    for (int attempt = 0; attempt < random_attempts; attempt++) {
        rtp_port = base + 2 * (utils::rand() % (span / 2));
        if (open_pair())
            return true;
    }
    return false;
}

bool channel::scan_ports(int base, int port_max) {
    for (rtp_port = base; rtp_port < port_max; rtp_port += 2)
        if (open_pair())
            return true;
    return false;
}

/// Opens the sockets of rtp_port and the port above it; all of them, or none.
bool channel::open_pair() {
    rtcp_port = rtp_port + 1;
    log_line(9, "Trying to open ports %d and %d", arg_int(rtp_port), arg_int(rtcp_port));
    bool const rtp_open = open_families(rtp_port, fd_rtp4, fd_rtp6);
    bool const rtcp_open = open_families(rtcp_port, fd_rtcp4, fd_rtcp6);
    if (rtp_open && rtcp_open)
        return true;
    close_sockets();
    return false;
}

/// Marks sent RTP. The IPv6 socket is given the IPv4 option too; the result does not matter.
void channel::set_type_of_service(int tos) {
    if (tos == 0)
        return;
    for (int const fd : {fd_rtp4, fd_rtp6})
        if (utils::valid_socket(fd))
            setsockopt(fd, IPPROTO_IP, IP_TOS, &tos, sizeof tos);
}
