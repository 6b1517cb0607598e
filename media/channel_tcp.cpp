#include "lib/log_line.h"
#include "lib/sockets.h"
#include "media/channel.h"
#include "media/notifications.h"
#include "media/tcp_framing.h"

namespace {

constexpr int most_passes = 10;  // over one piece of a stream
constexpr int tag_rtp_data = 13;
constexpr int tag_rtcp_data = 14;
constexpr unsigned char tls_handshake = 0x16;  // RFC 8446 section 5.1

void send_datagram(int fd4, int fd6, ip_port const& dest, str const& data) {
    if (utils::ipv4(dest.address))
        utils::send_udp_packet(fd4, dest, data);
    else if (utils::ipv6(dest.address))
        utils::send_udp_packet(fd6, dest, data);
}

}  // namespace

void channel::process_rtpt() {
    str const data = rtp_tcp.receive("RTP");
    if (!data.empty())
        process_rtp(data, rtp_tcp.get_peer(), true, rtimestamp::now());
}

/// Reports come framed like all media; bare ones are understood as well.
void channel::process_rtcpt() {
    str data = rtcp_tcp.receive("RTCP");
    for (int pass = 0; pass < most_passes && !data.empty(); pass++) {
        if (process_tcp_header(data, id, rtcp_tcp.get_peer(), tag_rtcp_data))
            continue;
        process_rtcp(data, rtcp_tcp.get_peer(), true, rtimestamp::now());
        break;
    }
}

void channel::process_rtp(str const& data, ip_port const& from, bool tcp, rtimestamp const& time) {
    if (!tcp) {
        process_rtp_data(data, from, false, time);
        return;
    }
    str rest = data;
    for (int pass = 1; pass <= most_passes && !rest.empty(); pass++) {
        if (process_tcp_header(rest, id, from, tag_rtp_data)) {
            log_line(8, "tcp control");
            continue;
        }
        process_tcp_packet(rest, from, time);
        log_line(8, "loop count %d", arg_int(pass));
    }
}

/// One bare packet; what is not recognised stays in `data`.
void channel::process_tcp_packet(str& data, ip_port const& from, rtimestamp const& time) {
    if (process_tcp_rtcp(data)) {
        log_line(8, "rtcp %H", arg_str(data));
        process_rtcp(data, from, true, time);
    } else if (data[0] == tls_handshake) {
        log_line(8, "pseudo tls");
        send_command_tunnel_rtp(id, from, data, true, tag_rtp_data);
    } else if (rtp_header::is_version_2(data)) {
        log_line(8, "rtp %H", arg_str(data));
        process_rtp_data(data, from, true, time);
    } else {
        log_line(8, "no rtp %H", arg_str(data));
        return;
    }
    data.clear();
}

void channel::send_rtp_datagram(ip_port const& dest, str const& data) {
    send_datagram(fd_rtp4, fd_rtp6, dest, data);
}

void channel::send_rtcp_datagram(ip_port const& dest, str const& data) {
    send_datagram(fd_rtcp4, fd_rtcp6, dest, data);
}

void channel::tunnel_rtp(ip_port const& dest, str const& data, bool tcp) {
    ip_port const to = !dest.empty() ? dest : tcp ? rtp_tcp.get_peer() : rtp_dest;
    if (to.empty())
        return;
    if (!tcp) {
        send_rtp_datagram(to, data);
        return;
    }
    rtp_tcp.connect(to, true);
    rtp_tcp.queue(data);
}

void channel::tunnel_rtcp(ip_port const& dest, str const& data, bool tcp) {
    ip_port const to = !dest.empty() ? dest : tcp ? rtcp_tcp.get_peer() : rtcp_dest;
    if (to.empty())
        return;
    if (!tcp) {
        send_rtcp_datagram(to, data);
        return;
    }
    rtcp_tcp.connect(to, true);
    rtcp_tcp.queue(data);
}
