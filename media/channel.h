#pragma once

#include <cstdint>

#include "codecs/codec.h"
#include "dsp/dtmf_synthesizer.h"
#include "dsp/synth.h"
#include "lib/address.h"
#include "lib/rtimestamp.h"
#include "lib/smap.h"
#include "lib/str.h"
#include "lib/svector.h"
#include "lib/timeout.h"
#include "media/rtcp_xr.h"
#include "media/rtp_header.h"
#include "media/tcp_connection.h"
#include "srtp/srtp.h"

/// One media stream: an RTP session with its RTCP port, bound to at most one line device.
///
/// The process owns a fixed array of them (`channels`); a channel is never destroyed while the process runs.
/// init() makes it idle, open() binds a fresh pair of ports, the setters configure it in any order. Audio is paced
/// by the line device alone: every 10 ms it gives one block to process_audio() and takes one from get_samples().
/// PCM is 16-bit at 8 kHz in host byte order, so 10 ms are 80 samples or 160 bytes. A channel owns its sockets,
/// coder state, generators and jitter buffer; it names its device by index (line::none = 4: no device).
class channel {
public:
    /// One entry of the jitter buffer.
    struct packet {
        int codec = 0;        ///< codec number, from the payload-type map
        rtimestamp received;  ///< when it arrived, by the kernel's stamp
        bool first = false;   ///< starts a talk spurt: clears what the line still has queued
        str payload;
    };

    channel();

    /// Stores the index in `channels`; notifications carry it.
    void set_id(int index) { id = index; }

    // ---- lifecycle and sockets (channel.cpp, channel_sockets.cpp)
    /// Back to idle: closes everything, forgets the call, draws a new first sequence number (16384..49151) and
    /// timestamp (a multiple of 80).
    void init();
    /// Closes all sockets and binds an even RTP port and the RTCP port above it in [port_min, port_max): up to 8
    /// random tries, then a scan. A non-zero tos goes into the IP header of sent RTP. The first RTCP report follows
    /// 100 ms later. Both ports read 0 on failure.
    void open(int port_min, int port_max, int tos);
    void close_sockets();

    // ---- settings
    /// Where RTP and RTCP go from now on, by datagrams or through a TCP connection to each. Empties the jitter
    /// buffer and the line's capture backlog.
    void set_destination(ip_port const& rtp, ip_port const& rtcp, bool tcp);
    /// Codec and payload type for sending, payload type of telephone events (below 1: DTMF goes in band), the map
    /// from received payload types to codec numbers (128 bytes, 128 and above: not accepted), and the packet time
    /// in ms (kept as it was when not above 0).
    void set_codec(int codec, int payload_type, int event_payload_type, str const& payload_map, int ptime);
    void set_call_id(str const& text) { call_id = text; }
    /// The 4 bytes that sent packets carry as SSRC.
    void set_ssrc(str const& ssrc) { local_ssrc = ssrc; }
    /// Which RTCP extended report blocks are sent, see rtcp_xr::set_mode().
    void set_rtcp_xr(str const& mode) { xr.set_mode(mode); }
    /// Keys for receiving and sending (16 bytes of master key and 14 of master salt each; empty: none), length of the
    /// SRTP tag in bytes (0: no authentication), master key identifier. A receive key alone protects reception, from
    /// the next SSRC on; a transmit key switches on sending and RTCP in both directions.
    void set_srtp(str const& receive, str const& transmit, int tag_length, str const& mki);
    /// Queues a digit: a telephone-event code (0..11: 0-9, *, #), sent for 380 ms in a rhythm of 500 ms.
    void send_dtmf(int digit);
    /// Plays a call-progress tone when there is no other audio; false (and silence) for an unknown one.
    bool set_playback(int tone_set, int kind) { return tone.set_tone(tone_set, kind) != 0; }
    /// Queues PCM that is played ahead of the network's audio; its end is notified.
    void add_playback(str const& pcm) { playback += pcm; }
    /// Binds to a line device; an invalid index leaves the channel without one.
    void set_tdm_channel(int device);
    void reset_tdm_channel();
    /// Has the bound device discard what it still has queued for the line.
    void tx_clear();

    // ---- state
    int get_fd_rtp4() const { return fd_rtp4; }
    int get_fd_rtcp4() const { return fd_rtcp4; }
    int get_fd_rtp6() const { return fd_rtp6; }
    int get_fd_rtcp6() const { return fd_rtcp6; }
    int get_fd_rtpt() const { return rtp_tcp.get_fd(); }
    int get_fd_rtcpt() const { return rtcp_tcp.get_fd(); }
    /// Local ports; 0 while not open.
    int get_rtp_port() const { return rtp_port; }
    int get_rtcp_port() const { return rtcp_port; }
    /// One line: the device's index and the destination.
    str dumptext() const;

    // ---- receiving (channel_receive.cpp)
    /// Read one datagram from the socket of that family and process it.
    void process_rtp4();
    void process_rtp6();
    /// What a socket delivered: one datagram, or with tcp a piece of the stream.
    void process_rtp(str const& data, ip_port const& from, bool tcp, rtimestamp const& time);
    /// One packet that arrived at `time`. What is no RTP for this channel is dropped or handed to call control.
    /// Always returns 0.
    int process_rtp_data(str const& data, ip_port const& from, bool tcp, rtimestamp const& time);

    // ---- TCP and data that call control has sent from the media ports (channel_tcp.cpp)
    /// Read a piece of the stream from the connection and process it.
    void process_rtpt();
    void process_rtcpt();
    /// Send data as it is from the RTP or RTCP port. An empty destination stands for the one that is set.
    void tunnel_rtp(ip_port const& dest, str const& data, bool tcp);
    void tunnel_rtcp(ip_port const& dest, str const& data, bool tcp);

    // ---- RTCP (channel_rtcp.cpp)
    /// Read one datagram from the RTCP socket of that family and process it.
    void process_rtcp4();
    void process_rtcp6();
    /// A compound packet that arrived at `arrival` on the process clock. Over UDP the first sender is latched.
    void process_rtcp(str const& compound, ip_port const& from, bool tcp, rtimestamp const& arrival);
    /// The timer's callback: sends the report of the channel of that index and schedules the next one.
    static void send_rtcp_update(int index);
    /// Sends one compound packet: sender report, source description, extended report.
    void send_rtcp_sr();
    /// Sends a BYE if anything was received since the last one.
    void send_rtcp_bye(str const& reason);

    // ---- playing out (channel_playout.cpp)
    /// Whether get_samples() has real audio to give.
    bool output_available() const;
    /// The next 10 ms for the device: exactly 160 bytes, zeros when there is nothing to play.
    str get_samples();

    // ---- sending (channel_send.cpp)
    /// One 10 ms block from the device: encodes, collects up to the packet time, sends. Always returns 0.
    int process_audio(str const& pcm);
    /// Builds and sends one packet. With advance it carries the audio timestamp; without, the one at which the
    /// current telephone event started.
    void send_rtp(int payload_type, str& payload, bool advance);

private:
    bool open_pair();
    bool try_random_ports(int base, int span);
    bool scan_ports(int base, int port_max);
    void set_type_of_service(int tos);

    void key_reception();
    bool unprotect(str const& data, rtp_header const& header, std::uint32_t& sequence, str& payload);
    void count_mac_failure(std::uint32_t sequence);
    str protect_rtcp(str const& compound);
    str decrypt_srtcp(str const& compound);
    bool latch_ssrc(rtp_header const& header, ip_port const& from, std::uint32_t now);
    void take_ssrc(str const& ssrc, ip_port const& from);
    void follow_sequence_step_back(std::uint32_t sequence, std::uint32_t now);
    bool start_talk_spurt(bool marker, std::uint32_t sequence);
    void buffer_packet(std::uint32_t sequence, packet const& entry);
    void empty_jitter_buffer();
    void raise_jitter_depth();
    bool in_sequence(int key) const { return static_cast<std::uint32_t>(key) == last_played_seq + 1; }
    void process_tcp_packet(str& data, ip_port const& from, rtimestamp const& time);
    void send_rtp_datagram(ip_port const& dest, str const& data);
    void send_rtcp_datagram(ip_port const& dest, str const& data);
    void process_rtcp_datagram(str const& compound, ip_port const& from, int fd);
    bool accept_rtcp_source(ip_port const& from, bool tcp);
    void process_sender_report(str const& report, rtimestamp const& arrival);
    void send_rtcp_packet(str const& compound);
    void send_rtcp_report(str const& compound, bool received) const;
    void play_announcement();
    void play_packet();

    void send_event_tick();
    str next_digit_block();
    str with_digit(str const& pcm);

    int id;

    // sockets: -1 when closed
    int fd_rtp4;
    int fd_rtcp4;
    int fd_rtp6;
    int fd_rtcp6;
    tcp_connection rtp_tcp;
    tcp_connection rtcp_tcp;
    int rtp_port;
    int rtcp_port;

    str call_id;  ///< non-empty: a call is on this channel
    std::uint32_t tx_packets;
    std::uint32_t tx_octets;  ///< whole packets as they left
    std::uint32_t rx_packets;
    str local_ssrc;
    str remote_ssrc;                 ///< of the stream being received; empty until the first packet
    std::uint32_t highest_sequence;  ///< extended, accepted from that stream; 0 before the first

    int tx_codec;
    int tx_payload_type;
    int event_payload_type;
    int rx_codec;  ///< of the newest packet whose payload type the map knows
    codec codec_state;
    str payload_map;

    // playing out
    str rx_pcm;    ///< decoded, not yet given to the device
    str playback;  ///< PCM played ahead of the network's audio
    synth tone;
    smap<int, packet> jitter_buffer;  ///< by extended sequence number
    int jb_depth;                     ///< packets at which play-out over a gap starts, 1..16
    int jb_in_order;                  ///< packets played in sequence since the last change, 0..127
    std::uint32_t last_played_seq;    ///< extended
    bool playing;                     ///< there is a valid play-out point
    std::uint32_t last_rx_rtp_time;   ///< arrival of the last accepted packet, 8 kHz ticks

    // addresses
    bool tcp_mode;  ///< media travel through rtp_tcp and rtcp_tcp
    ip_port rtp_dest;
    ip_port rtcp_dest;
    ip_port rtp_source;  ///< of the last accepted packet

    // sending
    std::uint32_t tx_seq;               ///< next; bits 0-15 go into the packet
    std::uint32_t tx_timestamp;         ///< of the next audio packet
    std::uint32_t event_timestamp;      ///< of telephone-event packets
    std::uint32_t last_sent_timestamp;  ///< of the newest packet sent
    bool tx_active;                     ///< something was sent
    bool tx_idle;
    int ptime;        ///< ms
    str tx_audio;     ///< encoded, for the next packet
    int tx_audio_ms;  ///< how much of the packet time is collected
    int last_tx_payload_type;
    str dtmf_queue;  ///< digits to be sent, one byte each
    int dtmf_tick;   ///< 10 ms step within the digit, 0..49
    dtmf_synthesizer dtmf;

    // SRTP
    str srtp_rx_key;      ///< master key and salt; empty: plain RTP is received
    str srtp_tx_key;      ///< the same for sending
    int srtp_tag_length;  ///< bytes
    str srtp_mki;         ///< in front of the tag
    srtp_session_ctx srtp;
    int srtp_mac_failures;  ///< packets dropped for a wrong tag
    bool srtp_verified;     ///< the first packet with a right tag has been notified

    // RTCP
    ip_port rtcp_source;  ///< whose RTCP is accepted over UDP; latched from the first packet
    timeout rtcp_timer;
    bool rtcp_received;       ///< since the last BYE
    unsigned rtcp_seqnr;      ///< SRTCP index of the next packet, 0..65535
    int packets_lost;         ///< in the report blocks; nothing counts it up
    str last_sr;              ///< middle 32 bits of the NTP time of the peer's last sender report
    rtimestamp last_sr_time;  ///< when it arrived
    rtcp_xr xr;
    int round_trip_ms;  ///< what the peer's report tells of the delay

    int tdm_channel;  ///< index of the bound device, line::none when there is none
};

/// All channels; the index is the call index on the control protocol.
extern svector<channel> channels;
constexpr int channel_count = 8;
