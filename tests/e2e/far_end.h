#pragma once

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/loopback.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/signals.h"

/// What a far end does wrong. The default does nothing wrong: A-law speech in packets of 20 ms.
struct far_behaviour {
    enum class sound { speech, faint, loud, other_law, one_value, cipher };
    enum class reports { none, claims_packets, knows_no_stream };
    int payload_type = 8;
    sound says = sound::speech;
    int payload_bytes = 160;
    int port_offset = 0;  ///< added to the port that it was told
    bool ipv6 = false;
    int senders = 1;  ///< SSRCs at once
    double clock_ppm = 0;
    int at_once = 0;  ///< packets that come in one moment after a second
    double stops_after_s = 1e9;
    bool sends = true;
    reports rtcp = reports::none;
};

/// A far end of its own on the loopback interface, with a thread that lives in real time.
class far_end {
public:
    explicit far_end(far_behaviour const& does) : behaviour(does) {}
    far_end(far_end const&) = delete;
    ~far_end() {
        ended = true;
        if (thread.joinable())
            thread.join();
        close(fd);
        close(fd6);
    }
    std::string address() const { return "127.0.0.1:" + std::to_string(bound_port(fd)); }
    /// Sends from now on to the call with these ports.
    void start(int rtp_port, int rtcp_port) {
        thread = std::thread([this, rtp_port, rtcp_port] { live(rtp_port + behaviour.port_offset, rtcp_port); });
    }

private:
    using clock = std::chrono::steady_clock;

    /// ITU-T G.711, by the comparison of decision values: the code whose value lies nearest.
    static std::uint8_t encode(int sample, bool a_law) {
        int const magnitude = std::min(std::abs(sample), 32000);
        int best = 0, distance = 1 << 30;
        for (int code = 0; code < 128; code++) {
            int const segment = code >> 4, step = code & 15;
            int const value = a_law ? (segment == 0 ? step * 16 + 8 : (step * 16 + 264) << (segment - 1))
                                    : ((step * 8 + 132) << segment) - 132;
            if (std::abs(value - magnitude) < distance) {
                distance = std::abs(value - magnitude);
                best = code;
            }
        }
        int const sign = sample >= 0 ? 0x80 : 0;
        return static_cast<std::uint8_t>(a_law ? (best | sign) ^ 0x55 : ~(best | (sign ^ 0x80)));
    }

    std::vector<std::uint8_t> sounds() {
        using sound = far_behaviour::sound;
        int const peak = behaviour.says == sound::faint ? 200 : 12000;
        bool const a_law = (behaviour.payload_type == 8) != (behaviour.says == sound::other_law);
        std::vector<std::uint8_t> codes;
        for (std::int16_t const s : signals::speech_like(4 * 8000, peak, 5))
            codes.push_back(encode(behaviour.says == sound::loud ? std::clamp(20 * s, -32767, 32767) : s, a_law));
        if (behaviour.says == sound::one_value)
            std::ranges::fill(codes, encode(0, a_law));
        return codes;
    }

    void send_packet(int to, std::uint16_t number, std::vector<std::uint8_t> const& codes, int sender) {
        std::uint32_t const stamp = number * static_cast<std::uint32_t>(std::min(behaviour.payload_bytes, 160));
        rtp_packet packet{.payload_type = behaviour.payload_type, .sequence = number, .timestamp = stamp};
        packet.ssrc = 0x5EED0000u + static_cast<unsigned>(sender);
        for (int i = 0; i < behaviour.payload_bytes; i++)
            packet.payload += static_cast<char>(behaviour.says == far_behaviour::sound::cipher
                                                    ? random()
                                                    : codes[(stamp + static_cast<unsigned>(i)) % codes.size()]);
        transmit(packet.build(), to);
    }

    void transmit(std::string const& packet, int to) {
        sockaddr_in6 const v6{AF_INET6, htons(static_cast<std::uint16_t>(to)), 0, IN6ADDR_LOOPBACK_INIT, 0};
        if (behaviour.ipv6)
            sendto(fd6, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr const*>(&v6), sizeof v6);
        else
            send_to_port(fd, to, packet.data(), packet.size());
    }

    /// A sender report without blocks.
    void report(int to, unsigned packets) {
        if (behaviour.rtcp != far_behaviour::reports::none)
            transmit(from_hex("80C80006 5EED0000 0000000000000000 00000000") + be32(packets) + be32(160 * packets), to);
    }

    void live(int rtp_port, int rtcp_port) {
        std::vector<std::uint8_t> const codes = sounds();
        clock::time_point const begin = clock::now();
        double const packet_s = std::min(behaviour.payload_bytes, 160) / 8000.0 * (1 - behaviour.clock_ppm / 1e6);
        int const burst_at = behaviour.at_once != 0 ? static_cast<int>(1 / packet_s) : 1 << 30;
        for (int number = 0; !ended; number++) {
            bool const of_burst = number >= burst_at && number < burst_at + behaviour.at_once;
            int const on_time = number < burst_at ? number : std::max(burst_at, number - behaviour.at_once);
            if (!of_burst)
                std::this_thread::sleep_until(begin + std::chrono::duration_cast<clock::duration>(
                                                          std::chrono::duration<double>(on_time * packet_s)));
            bool const sending = behaviour.sends && number * packet_s < behaviour.stops_after_s;
            for (int sender = 0; sending && sender < behaviour.senders; sender++)
                send_packet(rtp_port, static_cast<std::uint16_t>(number), codes, sender);
            if (number % 50 == 0)
                report(rtcp_port, 1000 + static_cast<unsigned>(number));
        }
    }

    far_behaviour const behaviour;
    int const fd = bound_udp_socket();
    int const fd6 = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::mt19937 random{7};
    std::atomic<bool> ended{false};
    std::thread thread;
};
