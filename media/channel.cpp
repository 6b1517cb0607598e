#include "media/channel.h"

#include "lib/log.h"
#include "lib/renew.h"

svector<channel> channels;

channel::channel() : rtp("RTP"), rtcp("RTCP") {}

channel::~channel() = default;

void channel::init() {
    if (!call_id.empty())
        log_line(8, "Close call %d", arg_int(id + 1));
    close_sockets();
    reset_tdm_channel();
    call_id.clear();

    rtp.reset();
    rtcp.reset();
    codec_state.clear();
    renew(receiving);
    renew(buffer);
    renew(player);
    renew(digits);
    renew(sending);
    sending.draw_start();
    reports.reset();
}

void channel::open(int port_min, int port_max, int tos) {
    constexpr int first_report_ms = 100;
    if (!media_port::open_pair(rtp, rtcp, port_min, port_max)) {
        reports.unschedule();
        return;
    }
    rtp.set_type_of_service(tos);
    reports.schedule(rtimestamp::ms2ticks(first_report_ms), callback_argument(send_rtcp_update, id));
}

void channel::close_sockets() {
    rtp.close();
    rtcp.close();
}

void channel::set_destination(ip_port const& rtp_to, ip_port const& rtcp_to, bool tcp) {
    if (line::valid(tdm_channel))
        line::rx_clear(tdm_channel);
    buffer.clear();
    rtp.set_destination(rtp_to, tcp);
    if (reports.is_exact() && rtcp_to != rtcp.get_destination())
        rtcp.set_source(ip_port());
    rtcp.set_destination(rtcp_to, tcp);
}

void channel::set_codec(int codec, int payload_type, int event_payload_type, str const& payload_map, int ptime) {
    sending.set_codec(codec, payload_type, event_payload_type, ptime);
    receiving.set_payload_map(payload_map);
}

void channel::set_srtp(str const& receive, str const& transmit, int tag_length, str const& mki) {
    srtp_trailer const trailer{tag_length, mki};
    receiving.set_keys(receive, trailer);
    sending.set_keys(transmit, trailer);
    if (transmit.empty())
        return;
    receiving.key();
    log_line(5, "SRTP Tx=%h Rx=%h", arg_str(transmit), arg_str(receive));
}

void channel::set_tdm_channel(int device) {
    reset_tdm_channel();
    if (!line::valid(device))
        return;
    tdm_channel = device;
    line::attach(device, id);
}

void channel::reset_tdm_channel() {
    if (!line::valid(tdm_channel))
        return;
    line::detach(tdm_channel, id);
    tdm_channel = line::none;
}

void channel::tx_clear() {
    if (line::valid(tdm_channel))
        line::tx_clear(tdm_channel);
}

str channel::dumptext() const {
    if (rtp.is_tcp()) {
        str const peer = utils::readable_ip(rtp.get_tcp_peer());
        return str::sprintf("%d(TCP:%s)", arg_int(tdm_channel), arg_str(peer));
    }
    ip_port const& to = rtp.get_destination();
    str const destination = to.empty() ? str::null : utils::readable_ip(to);
    return str::sprintf("%d(%s)", arg_int(tdm_channel), arg_str(destination));
}
