#pragma once

#include "codecs/codec.h"
#include "lib/address.h"
#include "lib/rtimestamp.h"
#include "lib/str.h"
#include "lib/svector.h"
#include "media/digit_sender.h"
#include "media/jitter_buffer.h"
#include "media/line.h"
#include "media/media_port.h"
#include "media/playout.h"
#include "media/reception.h"
#include "media/rtcp_session.h"
#include "media/transmission.h"

/// One media stream: an RTP session with its RTCP port, bound to at most one line device.
///
/// The process owns a fixed array of them (`channels`); a channel is never destroyed while the process runs.
/// init() makes it idle, open() binds a fresh pair of ports, the setters configure it in any order. Audio is paced
/// by the line device alone: every 10 ms it gives one block to process_audio() and takes one from get_samples().
/// PCM is 16-bit at 8 kHz in host byte order, so 10 ms are 80 samples or 160 bytes.
///
/// A channel is made of parts that don't know each other (see the private members). It forwards what it is told to
/// them, moves data from one to the next and tells call control what happened. It names its device by index
/// (line::none = 4: no device).
class channel {
public:
    using packet = jitter_buffer::packet;

    channel();
    ~channel();
    channel(channel const&) = delete;
    channel& operator=(channel const&) = delete;

    /// Stores the index in `channels`; notifications carry it.
    void set_id(int index) { id = index; }

    // ---- lifecycle and sockets
    /// Back to idle: closes everything, forgets the call, draws a new first sequence number and timestamp.
    void init();
    /// Closes all sockets and binds an even RTP port and the RTCP port above it in [port_min, port_max): up to 8
    /// random tries, then a scan. A non-zero tos goes into the IP header of sent RTP. The first RTCP report follows
    /// 100 ms later. Both ports read 0 on failure.
    void open(int port_min, int port_max, int tos);
    void close_sockets();

    // ---- settings
    /// Where RTP and RTCP go from now on, by datagrams or through a TCP connection to each. Empties the jitter
    /// buffer and the line's capture backlog.
    void set_destination(ip_port const& rtp_to, ip_port const& rtcp_to, bool tcp);
    /// Codec and payload type for sending, payload type of telephone events (below 1: DTMF goes in band), the map
    /// from received payload types to codec numbers (128 bytes, 128 and above: not accepted), and the packet time
    /// in ms (kept as it was when not above 0).
    void set_codec(int codec, int payload_type, int event_payload_type, str const& payload_map, int ptime);
    void set_call_id(str const& text) { call_id = text; }
    /// The 4 bytes that sent packets carry as SSRC.
    void set_ssrc(str const& ssrc) { sending.set_ssrc(ssrc); }
    /// Which RTCP extended report blocks are sent, see xr_mode::parse().
    void set_rtcp_xr(str const& mode) { reports.extended().set_mode(mode); }
    /// Keys for receiving and sending (16 bytes of master key and 14 of master salt each; empty: none), length of the
    /// SRTP tag in bytes (0: no authentication), master key identifier. A receive key alone protects reception, from
    /// the next SSRC on; a transmit key switches on sending and RTCP in both directions.
    void set_srtp(str const& receive, str const& transmit, int tag_length, str const& mki);
    /// Whether digits leave as telephone events.
    bool sends_events() const { return sending.get_event_payload_type() >= 1; }
    /// Queues a digit: a telephone-event code (0..11: 0-9, *, #), sent in a period of 500 ms.
    void send_dtmf(int digit) { digits.add(digit); }
    /// Plays a call-progress tone when there is no other audio; false (and silence) for an unknown one.
    bool set_playback(int tone_set, int kind) { return player.set_tone(tone_set, kind); }
    /// Queues PCM that is played ahead of the network's audio, up to 30 s of it; its end is notified.
    void add_playback(str const& pcm) { player.add_announcement(pcm); }
    /// Binds to a line device; an invalid index leaves the channel without one.
    void set_tdm_channel(int device);
    void reset_tdm_channel();
    /// Has the bound device discard what it still has queued for the line.
    void tx_clear();

    // ---- state
    int get_fd_rtp4() const { return rtp.get_fd4(); }
    int get_fd_rtcp4() const { return rtcp.get_fd4(); }
    int get_fd_rtp6() const { return rtp.get_fd6(); }
    int get_fd_rtcp6() const { return rtcp.get_fd6(); }
    int get_fd_rtpt() const { return rtp.get_tcp_fd(); }
    int get_fd_rtcpt() const { return rtcp.get_tcp_fd(); }
    /// Local ports; 0 while not open.
    int get_rtp_port() const { return rtp.get_number(); }
    int get_rtcp_port() const { return rtcp.get_number(); }
    /// One line: the device's index and the destination.
    str dumptext() const;

    // ---- RTP in
    /// Read one datagram from the socket of that family, or a piece of the stream from the connection, and process it.
    void process_rtp4();
    void process_rtp6();
    void process_rtpt();
    /// What a socket delivered: one datagram, or with tcp a piece of the stream.
    void process_rtp(str const& data, ip_port const& from, bool tcp, rtimestamp const& time);
    /// One packet that arrived at `time`. What is no RTP for this channel is dropped or handed to call control.
    /// Always returns 0.
    int process_rtp_data(str const& data, ip_port const& from, bool tcp, rtimestamp const& time);

    // ---- to the line
    /// Whether get_samples() has real audio to give.
    bool output_available() const { return player.available(buffer); }
    playout const& get_playout() const { return player; }
    /// Decides what the line's next block is made of when that can't wait any longer. Returns the ms until it is to be
    /// called again; -1: not before something came.
    int settle();
    /// The next 10 ms for the device: exactly 160 bytes, zeros when there is nothing to play. talk_spurt becomes true
    /// when a talk spurt begins with them, so that the device discards what it still has queued for the line.
    str get_samples(bool& talk_spurt);

    // ---- from the line, RTP out
    /// One 10 ms block from the device: encodes, collects up to the packet time, sends. Always returns 0.
    int process_audio(str const& pcm);
    /// Builds and sends one packet. With advance it carries the audio timestamp; without, the one at which the
    /// current telephone event started. The payload is used up.
    void send_rtp(int payload_type, str& payload, bool advance);

    // ---- RTCP
    /// Read one datagram from the RTCP socket of that family, or a piece of the stream, and process it.
    void process_rtcp4();
    void process_rtcp6();
    void process_rtcpt();
    /// A compound packet that arrived at `arrival` on the process clock. Over UDP the first sender is latched.
    void process_rtcp(str const& compound, ip_port const& from, bool tcp, rtimestamp const& arrival);
    /// The timer's callback: sends the report of the channel of that index and schedules the next one.
    static void send_rtcp_update(int index);
    /// Sends one compound packet: sender report, source description, extended report.
    void send_rtcp_sr();
    /// Sends a BYE if anything was received since the last one.
    void send_rtcp_bye(str const& reason);

    // ---- data that call control has sent from the media ports
    /// Send data as it is from the RTP or RTCP port. An empty destination stands for the one that is set.
    void tunnel_rtp(ip_port const& dest, str const& data, bool tcp) { rtp.send_bare(dest, data, tcp); }
    void tunnel_rtcp(ip_port const& dest, str const& data, bool tcp) { rtcp.send_bare(dest, data, tcp); }

private:
    bool process_tcp_header(str& data, ip_port const& from, int tag);
    bool process_tcp_packet(str const& data, ip_port const& from, rtimestamp const& time);
    void tell_of_stream(reception::result const& got, ip_port const& from) const;
    void tell_of_keys(reception::result const& got) const;
    void keep(reception::result& got, rtimestamp const& time, std::uint32_t arrived);
    void encode(str const& audio);
    void send_event_step();
    void process_rtcp_datagram(media_port::datagram const& got);
    str decrypt_srtcp(str const& compound);
    void send_rtcp_packet(str const& compound);
    void send_rtcp_report(str const& compound, bool received) const;

    int id = 0;
    int tdm_channel = line::none;  ///< index of the bound device
    str call_id;                   ///< non-empty: a call is on this channel

    media_port rtp;
    media_port rtcp;
    codec codec_state;  ///< decodes for the player, encodes for `sending`

    // from the network to the line
    reception receiving;
    jitter_buffer buffer;
    playout player;

    // from the line to the network
    digit_sender digits;
    transmission sending;

    rtcp_session reports;
};

/// All channels; the index is the call index on the control protocol.
extern svector<channel> channels;
constexpr int channel_count = 8;
