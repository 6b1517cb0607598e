#include "bench/impairment/listener.h"

#include <algorithm>

#include "media/channel.h"

namespace {

constexpr int packet_samples = packet_ms * samples_a_ms;

}  // namespace

listener::listener(network const& chosen, sound const& speech, std::uint64_t seed, int codec)
    : far_end(seed, codec),
      played(chosen),
      said(speech),
      arrivals(arrivals_us(chosen, seed, static_cast<int>(speech.size() / packet_samples))),
      codec_number(codec) {
    world.at(began + played.complete_us(0) * sim::us, 0);
    world.run_ms(static_cast<int>(speech.size() / samples_a_ms));
    counted = channels[0].get_playout().get_totals();
}

void listener::wake(int number) {
    if (static_cast<std::size_t>(number) >= arrivals.size())
        return;
    send(number);
    world.at(began + played.complete_us(number + 1) * sim::us, number + 1);
}

void listener::send(int number) {
    int const first = number * packet_samples;
    auto const* const samples = reinterpret_cast<unsigned char const*>(said.data() + first);
    str const payload = coder.encode(codec_number, str(samples, packet_samples * static_cast<int>(sizeof said[0])));
    std::string_view const bytes(reinterpret_cast<char const*>(payload.buffer()),
                                 static_cast<std::size_t>(payload.length()));
    std::int64_t const arrival = arrivals[static_cast<std::size_t>(number)];
    if (arrival >= 0)
        deliver(rtp_packet(number, first, bytes), arrival * sim::us - elapsed_ns());
}

void listener::line(int, std::int16_t const* block, std::int16_t*) {
    if (heard.empty())
        heard.resize(static_cast<std::size_t>(elapsed_ns() / sim::ms * samples_a_ms));
    if (block)
        heard.insert(heard.end(), block, block + sim::block_samples);
    else
        heard.resize(heard.size() + sim::block_samples);
}
