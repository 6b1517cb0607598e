#pragma once

#include "lib/protocol.h"
#include "tests/attack/attacker.h"
#include "tests/support/seed.h"
#include "tools/fxslink/links.h"
#include "tools/protocol/codecs.h"

inline bool readable(int fd) {
    return shows(fd, POLLIN, 0);
}

/// The way between the two ends of a call, for RTP and RTCP: UDP through a bad network, or TCP. Served by its owner,
/// without waiting.
struct far_way {
    /// Where an end sends RTP (0) and RTCP (1) to.
    protocol::address address(std::size_t kind, int side) const {
        int const fd = udp.empty() ? tcp[kind].listening_fd(side) : udp[kind].fd(side);
        return {{127, 0, 0, 1}, bound_port(fd)};
    }
    void serve() {
        auto const now = steady::now();
        for (int const side : {0, 1}) {
            for (tcp_link& link : tcp) {
                if (readable(link.listening_fd(side)))
                    link.accept_client(side);
                while (readable(link.client_fd(side)))
                    link.receive(side);
            }
            for (udp_link& link : udp)
                for (; readable(link.fd(side)); link.receive(side, now))
                    if (&link == &udp[0])
                        check_sequence(side);
        }
        for (udp_link& link : udp)
            link.send_due(now);
    }
    void check_sequence(int side) {
        std::string header(4, 0);
        recv(udp[0].fd(side), header.data(), header.size(), MSG_PEEK);
        unsigned const sequence = get_be16(header, 2);
        gaps += last[side] && sequence != ((*last[side] + 1) & 0xFFFF);
        last[side] = sequence;
        packets++;
    }

    std::vector<udp_link> udp;
    std::vector<tcp_link> tcp;
    unsigned packets = 0, gaps = 0;  ///< of RTP on UDP; sequence numbers that were not the next one
    std::optional<unsigned> last[2];
};

/// Four calls of random length between two lines, straight or a far way, two on one line as a conference, every codec,
/// with and without keys, UDP and TCP, both families; digits, tones, changes, strangers.
class calls {
public:
    calls(protocol::control_client& process, dice& random) : client(process), decide(random) {}
    /// Ends what is over and, now and then, begins a call or changes something.
    void step() {
        for (call& c : all)
            if (c.ends <= steady::now())
                end(c);
        call& c = all[below(std::size(all))];
        if (c.legs.empty() && decide.chance(50))
            begin(c);
        else if (!c.legs.empty() && decide.chance(30))
            change(c), changes++;
    }
    void serve() {
        for (call& c : all)
            c.far.serve();
    }
    void end_all() {
        std::ranges::for_each(all, [this](call& c) { end(c); });
    }
    /// The answer comes when all that was asked for before has been done.
    void ask_driver() {
        send(protocol::reset_base_command{.command = 3});
        questions++;
    }

    unsigned begun = 0, failed = 0, changes = 0, questions = 0;
    unsigned far_packets = 0, far_gaps = 0;  ///< of calls that are over, as far_way has them

private:
    struct leg {
        protocol::media_command media;  ///< as it was said last
        std::uint16_t line, rtp_port;
    };
    struct call {
        std::vector<leg> legs;  ///< two, or none
        far_way far;            ///< without links: straight
        steady::time_point ends;
    };
    static constexpr impairment::settings networks[] = {
        {}, {}, {0, 0, 0, 60}, {5, 2, 0, 40}, {30, 10, 0, 120}, {100, 0, 0, 0}};
    static constexpr char const* xr_modes[] = {
        "", "", "rcvr-rtt stat-summary voip-metrics",
        "pkt-loss-rle pkt-dup-rle pkt-rcpt-times=200 rcvr-rtt stat-summary voip-metrics"};
    static constexpr std::uint16_t packet_times_ms[] = {10, 20, 20, 30, 60};

    template <class command>
    void send(command const& c) {
        client.send(protocol::encode(c));
    }
    std::uint16_t below(std::size_t n) { return static_cast<std::uint16_t>(decide.below(static_cast<int>(n))); }
    protocol::bytes random_bytes(int n) {
        protocol::bytes data(static_cast<std::size_t>(n));
        std::ranges::generate(data, [this] { return static_cast<std::uint8_t>(decide.word()); });
        return data;
    }

    void begin(call& c) {
        int const longest_ms = 500 << decide.below(10);  // up to four minutes, half of them below 12 s
        c.ends = steady::now() + std::chrono::milliseconds(decide.between(longest_ms / 2, longest_ms));
        protocol::media_command media{.xr_mode = xr_modes[below(std::size(xr_modes))]};
        media.event_payload_type = decide.chance(70) ? std::uint8_t{101} : std::uint8_t{0};
        if (decide.chance(50)) {
            media.srtp_rx_key = media.srtp_tx_key = random_bytes(30);
            media.srtp_tag_bytes = decide.chance(50) ? std::uint8_t{10} : std::uint8_t{4};
            media.srtp_mki = random_bytes(decide.chance(30) ? 4 : 0);
        }
        bool const far = decide.chance(60);
        media.tcp = far && decide.chance(30);
        impairment::settings const network = networks[below(std::size(networks))];
        for (int kind = 0; far && kind < 2; kind++)
            *media.tcp ? void(c.far.tcp.emplace_back(0, 0))
                       : void(c.far.udp.emplace_back(0, 0, network, decide.word()));
        auto const ip = *protocol::parse_ip(decide.chance(50) ? "::1" : "127.0.0.1");
        std::uint16_t const ports[] = {open_leg(c, media), open_leg(c, media)};
        for (int i = 0; i < 2; i++) {
            std::uint16_t const port = ports[1 - i];
            c.legs[i].media.rtp_dest = far ? c.far.address(0, i) : protocol::address{ip, port};
            c.legs[i].media.rtcp_dest = far ? c.far.address(1, i) : protocol::address{ip, std::uint16_t(port + 1)};
        }
        set_media(c);
        for (leg const& l : c.legs)
            send(protocol::tdm_command{.call = l.media.call, .slot = l.line});
        begun++;
    }
    /// On a line that has room for one more. Its RTP port.
    std::uint16_t open_leg(call& c, protocol::media_command media) {
        std::uint16_t line = below(protocol::slot_count);
        while (on_line[line] == 2)
            line = below(protocol::slot_count);
        on_line[line]++;
        media.call = static_cast<std::uint16_t>(2 * (&c - all) + static_cast<long>(c.legs.size()));
        send(protocol::open_command{.call = media.call, .call_id = decide.chance(80) ? "soak" : ""});
        auto const reply = client.wait_for<protocol::open_reply>(
            patience, [&](protocol::open_reply const& r) { return r.call == media.call; });
        failed += !reply || reply->rtp_port == 0;
        std::uint16_t const port = reply ? reply->rtp_port : std::uint16_t{9};  // 9: discarded
        c.legs.push_back({media, line, port});
        return port;
    }
    void end(call& c) {
        for (leg const& l : c.legs) {
            send(protocol::end_command{.call = l.media.call});
            on_line[l.line]--;
        }
        far_packets += c.far.packets;
        far_gaps += c.far.gaps;
        c = {};
    }

    /// Another codec and packet time, and with them a new SSRC; the keys once more.
    void set_media(call& c) {
        std::vector<protocol::codec_choice> map;
        for (protocol::codec_format const& codec : protocol::codec_formats)
            if (codec.number != protocol::codec_number::telephone_event)
                map.push_back(protocol::usual_choice(codec));
        auto const send_as = map[below(map.size())];
        std::uint16_t const ptime_ms = packet_times_ms[below(std::size(packet_times_ms))];
        for (leg& l : c.legs) {
            l.media.map = map, l.media.send = send_as, l.media.ptime_ms = ptime_ms;
            send(l.media);
        }
    }
    void change(call& c) {
        auto const& [media, line, rtp_port] = c.legs[below(2)];
        switch (decide.below(9)) {
            case 0: return set_media(c);
            case 1: return send(protocol::playback_command{media.call, below(17), below(5)});
            case 2:  // off its line and on again
                send(protocol::tdm_command{.call = media.call});
                return send(protocol::tdm_command{.call = media.call, .slot = line});
            case 3: return decide.chance(30) ? c.far.tcp.clear() : void();  // hangs up
            case 4: return disturb(static_cast<std::uint16_t>(rtp_port + below(2)));
            case 5: return send(protocol::led_command{.pattern = below(5)});
            case 6: return ask_driver();
            default: return send(protocol::dtmf_command{media.call, below(13)});
        }
    }
    /// Noise of a stranger.
    void disturb(std::uint16_t port) {
        stranger noisy(port);
        for (int n = decide.below(20); n > 0; n--) {
            protocol::bytes noise = random_bytes(decide.between(1, 1400));
            noise[0] &= 0x3F;  // no RTP: that could take the call over
            noisy.socket.send(noise);
        }
    }

    protocol::control_client& client;
    dice& decide;
    call all[protocol::call_count / 2];
    int on_line[protocol::slot_count] = {};
};
