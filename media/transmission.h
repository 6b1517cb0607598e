#pragma once

#include <cstdint>

#include "lib/extensions.h"
#include "lib/str.h"
#include "srtp/checked_srtp.h"
#include "srtp/srtp.h"

/// The sending side of one RTP stream: collects encoded audio up to the packet time, numbers, times and protects
/// packets, and counts what reports need. Payloads go in, packets come out; knows neither lines nor sockets nor
/// digits. A channel owns one.
class transmission {
public:
    /// Draws the first sequence number (16384..49151, so that it cannot wrap soon) and the first timestamp (a multiple
    /// of 80, one block of 10 ms).
    void draw_start();

    /// Codec and payload type of audio, payload type of telephone events (below 1: DTMF goes in band), packet time in
    /// ms (kept as it was when not above 0).
    void set_codec(int codec, int audio_payload_type, int event_type, int packet_time_ms);
    /// The 4 bytes that packets carry as SSRC, protected ones included.
    void set_ssrc(str const& new_ssrc);
    /// Master key and salt (30 bytes, with the extension `srtp` see srtp_suite; empty: packets leave in the clear) and
    /// what follows the encrypted part.
    void set_keys(str const& material, srtp_trailer const& packet_trailer);
    bool is_protected() const { return !key_material.empty(); }

    /// Appends encoded audio of so many ms to the next packet.
    void collect(str const& encoded, int ms);
    /// Whether the packet time is over.
    bool is_complete() const { return collected_ms >= ptime_ms; }
    /// The audio collected, which is no longer kept.
    str take_collected();

    /// The next packet. With `advance` it carries the audio timestamp; without, the one at which the current telephone
    /// event started. `payload` is used up.
    str packet(int payload_type, str& payload, bool advance);
    /// So many bytes left for the last packet.
    void count_octets(int bytes) { octets += static_cast<std::uint32_t>(bytes); }
    /// A compound packet protected as the next one of this stream.
    str protect_rtcp(str const& compound);

    int get_codec() const { return codec_number; }
    int get_payload_type() const { return payload_type; }
    int get_event_payload_type() const { return event_payload_type; }
    int get_ptime_ms() const { return ptime_ms; }
    int get_collected_ms() const { return collected_ms; }
    str const& get_ssrc() const { return ssrc; }
    std::uint32_t get_packets() const { return packets; }
    /// Bytes of whole packets as they left.
    std::uint32_t get_octets() const { return octets; }
    /// RTP timestamp of the newest packet.
    std::uint32_t get_last_timestamp() const { return last_timestamp; }

private:
    void make_room(int payload_bytes);
    str protect(str const& header, str& payload);

    static constexpr int default_ptime_ms = 20;    // RFC 3551 section 4.2
    static constexpr int no_payload_type = 255;    // differs from every real one: the first packet gets the marker
    static constexpr unsigned last_index = 65535;  // only 16 bits of an SRTCP index reach the cipher's counter

    int codec_number = -1;
    int payload_type = -1;
    int event_payload_type = -1;
    int ptime_ms = default_ptime_ms;
    str ssrc;

    str collected;  ///< encoded, for the next packet
    int collected_ms = 0;

    std::uint32_t sequence = 0;         ///< of the next packet; bits 16-31 are the SRTP rollover counter
    std::uint32_t timestamp = 0;        ///< of the next audio packet
    std::uint32_t event_timestamp = 0;  ///< of telephone-event packets
    std::uint32_t last_timestamp = 0;
    int last_payload_type = no_payload_type;
    std::uint32_t packets = 0;
    std::uint32_t octets = 0;

    str key_material;  ///< master key, then master salt
    srtp_trailer trailer{0, str()};
    bool checking = extensions.srtp;
    srtp_ctx srtp_tx;         ///< unless checking
    srtp_sender checked;      ///< if checking
    unsigned rtcp_index = 0;  ///< of the next protected compound, 0..65535
};
