// What the listener gets when the network is bad: delay and silence, second by second, in a simulated minute (sim/). A
// far end sends blocks of 10 ms whose samples are their number, so each block that the telephone hears tells when it
// left. Everything follows from the seed; the figures are the same on every machine.
// usage: play_out [seed]      one JSON object a line: {"scene", "second", "delay_ms", "silent_ms"}
//        delay_ms: median from the microphone to the ear, packet time included; null: nothing was heard in that second

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/far_end.h"
#include "lib/protocol.h"

namespace {

constexpr int seconds = 60, ticks_a_second = 100, tick_ms = 10;

/// One course: what the path does, and how the far end sends.
struct scene {
    std::string name;
    sim::path path = {};
    int packet_samples = 160;
    int rate_ppm = 0;                   ///< the far end's clock against the device's
    int held_from_ms = 0, held_ms = 0;  ///< all packets of this time arrive at its end
};

/// A call from the far end to the telephone on line 0.
class listener : public far_end {
public:
    listener(scene const& course, std::uint64_t seed) : far_end(seed, protocol::codec_number::linear), played(course) {
        world.at(began, 0);
        world.run_ms(seconds * 1000);
    }
    void print() const {
        for (int second = 0; second < seconds; second++) {
            std::vector<int> delays = heard[second].delays_ms;
            std::sort(delays.begin(), delays.end());
            std::string const median = delays.empty() ? "null" : std::to_string(delays[delays.size() / 2]);
            std::printf("{\"scene\":\"%s\",\"second\":%d,\"delay_ms\":%s,\"silent_ms\":%d}\n", played.name.c_str(),
                        second, median.c_str(), 1000 - tick_ms * static_cast<int>(delays.size()));
        }
    }

    sim::path route(sim::endpoint const& from, sim::endpoint const&) override {
        return from == address ? played.path : sim::path{};
    }
    void wake(int number) override {
        send(number);
        world.at(began + time_of(number + 1), number + 1);
    }
    void line(int, std::int16_t const* block, std::int16_t*) override {
        std::int64_t const second = elapsed_ns() / sim::second;
        if (block == nullptr || block[0] == 0 || second >= seconds)
            return;
        std::int64_t const said = (block[0] - 1LL) * tick_ms * sim::ms * 1000000 / (1000000 + played.rate_ppm);
        heard[second].delays_ms.push_back(static_cast<int>((world.now() - began - said) / sim::ms));
    }

private:
    struct one_second {
        std::vector<int> delays_ms;
    };

    /// When packet `number` is complete: ns after the beginning.
    std::int64_t time_of(int number) const {
        return (number + 1LL) * played.packet_samples * sim::second / 8000 * 1000000 / (1000000 + played.rate_ppm);
    }
    void send(int number) {
        int const first = number * played.packet_samples;
        std::string payload;
        for (int i = first; i < first + played.packet_samples; i++) {
            auto const sample = static_cast<std::int16_t>(i / sim::block_samples + 1);
            payload.append(reinterpret_cast<char const*>(&sample), sizeof sample);
        }
        std::string const packet = rtp_packet(number, first, payload);
        std::int64_t const at_ms = elapsed_ns() / sim::ms - played.held_from_ms;
        if (at_ms >= 0 && at_ms < played.held_ms)
            deliver(packet, (played.held_ms - at_ms) * sim::ms);
        else
            transmit(packet);
    }

    scene const played;
    one_second heard[seconds];
};

std::vector<scene> courses() {
    std::vector<scene> all;
    for (int const percent : {0, 1, 2, 3, 5, 10})
        all.push_back({.name = "loss " + std::to_string(percent) + " %", .path = {.loss_permille = 10 * percent}});
    for (int const jitter_ms : {5, 20, 40, 60})
        all.push_back({.name = "jitter " + std::to_string(jitter_ms) + " ms", .path = {.jitter_us = 1000 * jitter_ms}});
    for (int const held_ms : {60, 200, 1000})
        all.push_back(
            {.name = "held up " + std::to_string(held_ms) + " ms", .held_from_ms = 10000, .held_ms = held_ms});
    for (int const ppm : {-20000, 200, 20000})
        all.push_back({.name = "sender " + std::to_string(ppm) + " ppm", .rate_ppm = ppm});
    for (int const samples : {200, 240, 360})
        all.push_back({.name = "packets of " + std::to_string(samples / 8) + " ms", .packet_samples = samples});
    return all;
}

}  // namespace

int main(int argc, char** argv) {
    std::uint64_t const seed = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    for (scene const& course : courses())
        listener(course, seed).print();
}
