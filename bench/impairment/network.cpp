#include "bench/impairment/network.h"

#include "sim/endpoint.h"

namespace {

constexpr int delay_us = 100, first_hold_ms = 10000;

/// Two states; mean lengths of bursts and of what is between them give the loss.
class gilbert {
public:
    gilbert(int loss_permille, int burst_packets)
        : end_permille(1000 / burst_packets), begin_permille(end_permille * loss_permille / (1000 - loss_permille)) {}

    bool loses(sim::decider& random) {
        in_burst = in_burst ? !random.chance(end_permille) : random.chance(begin_permille);
        return in_burst;
    }

private:
    int end_permille, begin_permille;
    bool in_burst = false;
};

/// How long a packet is held up.
std::int64_t hold_us(network const& chosen, std::int64_t complete_us) {
    std::int64_t at_us = complete_us - first_hold_ms * 1000;
    if (chosen.held_every_ms > 0 && at_us >= 0)
        at_us %= chosen.held_every_ms * 1000;
    std::int64_t const held_us = chosen.held_ms * std::int64_t{1000};
    return at_us >= 0 && at_us < held_us ? held_us - at_us : 0;
}

}  // namespace

std::int64_t network::complete_us(int number) const {
    return (number + 1LL) * packet_ms * 1000 * 1000000 / (1000000 + sender_ppm);
}

std::vector<std::int64_t> arrivals_us(network const& chosen, std::uint64_t seed, int packets) {
    sim::random_source random(seed);
    gilbert losses(chosen.loss_permille, chosen.burst_packets);
    std::vector<std::int64_t> all;
    for (int number = 0; number < packets; number++) {
        bool const lost = losses.loses(random);
        std::int64_t const complete = chosen.complete_us(number), held = hold_us(chosen, complete);
        std::int64_t const jitter = random.below(chosen.jitter_ms * 1000 + 1);
        all.push_back(lost ? -1 : complete + (held > 0 ? held : delay_us + jitter));
    }
    return all;
}

std::vector<network> networks() {
    std::vector<network> all = {{.name = "clean"}};
    for (int const burst : {1, 3})
        for (int const percent : {1, 3, 5, 10})
            all.push_back({.name = (burst == 1 ? "loss " : "bursts of 3, ") + std::to_string(percent) + " %",
                           .loss_permille = 10 * percent,
                           .burst_packets = burst});
    for (int const jitter_ms : {5, 20, 60})
        all.push_back({.name = "jitter " + std::to_string(jitter_ms) + " ms", .jitter_ms = jitter_ms});
    for (int const held_ms : {60, 200, 1000})
        all.push_back({.name = "stall of " + std::to_string(held_ms) + " ms", .held_ms = held_ms});
    all.push_back({.name = "spikes of 100 ms, every 3 s", .held_ms = 100, .held_every_ms = 3000});
    for (int const ppm : {-20000, -200, 200, 20000})
        all.push_back({.name = "sender " + std::to_string(ppm) + " ppm", .sender_ppm = ppm});
    all.push_back({.name = "jitter 20 ms, loss 3 %", .jitter_ms = 20, .loss_permille = 30});
    all.push_back({.name = "jitter 60 ms, bursts 5 %, 200 ppm",
                   .jitter_ms = 60,
                   .loss_permille = 50,
                   .burst_packets = 3,
                   .sender_ppm = 200});
    return all;
}
