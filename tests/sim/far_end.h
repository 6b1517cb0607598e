#pragma once

#include <cstdint>

#include "codecs/codec.h"
#include "lib/bytes.h"
#include "sim/world.h"
#include "srtp/srtp.h"

namespace sim {

/// A fault of the process that a check found: prints it with the simulated time and ends the program.
[[noreturn]] void violated(std::string_view what, long long value = 0);

inline str to_str(std::string_view data) {
    return str(reinterpret_cast<unsigned char const*>(data.data()), static_cast<int>(data.size()));
}
inline std::string_view view(str const& data) {
    return {reinterpret_cast<char const*>(data.cbuffer()), static_cast<std::size_t>(data.length())};
}

/// Big-endian.
inline str be16(int value) {
    return utils::int2str(static_cast<unsigned>(value), 2);
}
inline str be32(std::uint32_t value) {
    return utils::int2str(value, 4);
}

/// A codec as it travels: number, payload type, bytes of a payload of 20 ms.
struct format {
    int codec, payload_type, bytes_per_20ms;
    char const* name;
};
extern format const formats[7];
constexpr int event_type = 101;
/// Of a payload type; null: none.
format const* find_format(int payload_type);

/// The keys of one direction and the tag's length; without keys: plain.
struct protection {
    bytes key;  ///< 16 bytes of master key, 14 of salt
    int tag_bytes = 10;
};

/// A telephone somewhere in the network: sends what it says as RTP, plays what arrives, exchanges RTCP, over datagrams
/// or streams, protected or not. It checks what it gets where that needs its keys: tags, compound packets, round trip.
class far_end {
public:
    struct plan {
        endpoint rtp, device_rtp;          ///< its own and the channel's; RTCP has the port above
        format const* talk = &formats[0];  ///< what it sends
        int ptime_ms = 20, ppm = 0;        ///< packet time by its own clock
        bool streams = false;              ///< the process connects to both ports
        protection in, out;                ///< what it receives and sends
        std::uint32_t ssrc = 1, sequence = 1, timestamp = 1;
        std::uint32_t process_sequence = 0;  ///< extended, of the next packet it gets
        bool round_trip_known = true;        ///< the path's delay is below 15 ms each way
    };
    /// What it says and hears, 80 samples each.
    struct ear_and_mouth {
        virtual void say(int far, std::int16_t* pcm) = 0;
        virtual void hear(int far, std::int16_t const* pcm) = 0;
    };

    void begin(world& home, int number, plan const& wanted, ear_and_mouth& ears);
    void end();
    /// Between begin() and end().
    void talk_in(format const& f) { p.talk = &f; }
    void rekey(protection const& in, protection const& out, std::uint32_t process_sequence);
    void send_event(int digit);

    // What surroundings pass on.
    static int index_of(int token) { return token & 0xFF; }
    void wake(int token);
    bool owns(endpoint const& e) const { return on && (e == p.rtp || e == rtcp_of(p.rtp)); }
    void arrived(endpoint const& to, std::string_view data);
    void connected(int stream, endpoint const& to) { streams[to != p.rtp] = stream; }
    bool owns_stream(int stream) const { return on && (stream == streams[0] || stream == streams[1]); }
    void stream_data(int stream, std::string_view data);
    int media_stream() const { return streams[0]; }

    plan const& planned() const { return p; }
    std::uint64_t received = 0, sent = 0, round_trips = 0;  ///< since it was made
    int digits = 0;                                         ///< events that ended, since begin()

private:
    static endpoint rtcp_of(endpoint const& rtp) { return rtp.with_port(rtp.port + 1); }
    void send_packet(int payload_type, str& payload, bool marker, std::uint32_t timestamp);
    void send_report();
    void transmit(bool rtp, str const& packet);
    void receive_rtp(str const& packet);
    void receive_rtcp(str const& packet);
    std::uint64_t ntp() const { return static_cast<std::uint64_t>(w->now() / ms) * 65536 / 1000; }

    world* w = nullptr;
    ear_and_mouth* audio = nullptr;
    plan p;
    bool on = false;
    int index = 0, generation = 0, streams[2] = {};  ///< of RTP and RTCP
    codec coder;
    struct {
        srtp_ctx rx, tx;
    } keys;
    std::int64_t next = 0, next_report = 0, keyed_at = 0;
    std::uint32_t last_event = 0, last_report_sent = 0;
    bool first = true;
    bytes unread[2];  ///< of the streams
};

}  // namespace sim
