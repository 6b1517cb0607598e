#include "media/channel.h"

#include "lib/log_line.h"
#include "lib/random.h"
#include "media/line.h"

svector<channel> channels;

namespace {

constexpr std::uint32_t initial_last_played_seq = 32768;  // the middle: no wrap near the first packet
constexpr int initial_ptime_ms = 20;
constexpr int no_payload_type = 255;  // differs from every real one: the first packet gets the marker bit

/// A first sequence number in 16384..49151, so that it cannot wrap soon.
std::uint32_t random_first_sequence() {
    return static_cast<std::uint32_t>(utils::rand() % 32768 + 16384);
}

/// A random multiple of 80 samples (one 10 ms block) below 2^32 - 16.
std::uint32_t random_first_timestamp() {
    std::uint32_t const high = static_cast<std::uint32_t>(utils::rand()) << 15;
    std::uint32_t const low = static_cast<std::uint32_t>(utils::rand());
    return (high + low) % 53687091u * 80u;
}

}  // namespace

channel::channel()
    : id(0),
      fd_rtp4(-1),
      fd_rtcp4(-1),
      fd_rtp6(-1),
      fd_rtcp6(-1),
      rtp_port(0),
      rtcp_port(0),
      tx_packets(0),
      tx_octets(0),
      rx_packets(0),
      highest_sequence(0),
      tx_codec(-1),
      tx_payload_type(-1),
      event_payload_type(-1),
      rx_codec(-1),
      jb_depth(1),
      jb_in_order(0),
      last_played_seq(initial_last_played_seq),
      playing(false),
      last_rx_rtp_time(0),
      tcp_mode(false),
      tx_seq(0),
      tx_timestamp(0),
      event_timestamp(0),
      last_sent_timestamp(0),
      tx_active(false),
      tx_idle(false),
      ptime(initial_ptime_ms),
      tx_audio_ms(0),
      last_tx_payload_type(no_payload_type),
      dtmf_tick(0),
      srtp_tag_length(0),
      srtp_mac_failures(0),
      srtp_verified(false),
      rtcp_received(false),
      rtcp_seqnr(0),
      packets_lost(0),
      round_trip_ms(0),
      tdm_channel(line::none) {}

void channel::init() {
    if (!call_id.empty())
        log_line(8, "Close call %d", arg_int(id + 1));
    close_sockets();
    reset_tdm_channel();
    set_playback(0, 0);
    rtp_port = rtcp_port = 0;

    call_id.clear();
    tx_packets = tx_octets = rx_packets = 0;
    local_ssrc.clear();
    remote_ssrc.clear();
    highest_sequence = 0;
    tx_codec = tx_payload_type = event_payload_type = rx_codec = -1;
    payload_map.clear();
    codec_state.clear();

    tcp_mode = false;
    rtp_dest.clear();
    rtcp_dest.clear();
    rtp_source.clear();
    rtp_tcp.reset();
    rtcp_tcp.reset();

    srtp_rx_key.clear();
    srtp_tx_key.clear();
    srtp_tag_length = 0;
    srtp_mki.clear();
    srtp_mac_failures = 0;
    srtp_verified = false;

    rtcp_source.clear();
    rtcp_timer.clear();
    rtcp_received = false;
    rtcp_seqnr = 0;
    packets_lost = 0;
    last_sr.clear();
    last_sr_time.clear();
    xr.clear();
    round_trip_ms = 0;

    tx_seq = random_first_sequence();
    tx_timestamp = event_timestamp = random_first_timestamp();
    last_sent_timestamp = 0;
    tx_active = tx_idle = false;
    ptime = initial_ptime_ms;
    tx_audio.clear();
    tx_audio_ms = 0;
    last_tx_payload_type = no_payload_type;
    dtmf_queue.clear();
    dtmf_tick = 0;
    dtmf.clear();

    empty_jitter_buffer();
    last_played_seq = initial_last_played_seq;
    last_rx_rtp_time = 0;
    rx_pcm.clear();
    playback.clear();
}

void channel::set_destination(ip_port const& rtp, ip_port const& rtcp, bool tcp) {
    if (line::valid(tdm_channel))
        line::rx_clear(tdm_channel);
    jitter_buffer.clear();
    tcp_mode = tcp;
    if (tcp) {
        rtp_tcp.connect(rtp, false);
        rtcp_tcp.connect(rtcp, false);
    } else {
        rtp_dest = rtp;
        rtcp_dest = rtcp;
    }
}

void channel::set_codec(int codec_number, int payload_type, int event_type, str const& map, int packet_time) {
    tx_codec = codec_number;
    tx_payload_type = payload_type;
    event_payload_type = event_type;
    payload_map = map;
    if (packet_time > 0)
        ptime = packet_time;
}

void channel::send_dtmf(int digit) {
    dtmf_queue += static_cast<unsigned char>(digit);
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
    if (tcp_mode) {
        str const peer = utils::readable_ip(rtp_tcp.get_peer());
        return str::sprintf("%d(TCP:%s)", arg_int(tdm_channel), arg_str(peer));
    }
    str const destination = rtp_dest.empty() ? str::null : utils::readable_ip(rtp_dest);
    return str::sprintf("%d(%s)", arg_int(tdm_channel), arg_str(destination));
}
