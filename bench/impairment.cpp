// What a bad network does to speech, mouth to ear, without and with the extension `playout`: a simulated minute for
// each impairment (sim/). A far end sends speech (made here, or of a file) in packets of 20 ms of linear PCM; what the
// telephone hears is compared with it. The same again with a sine, in which a click shows. Everything follows from the
// seed.
// usage: impairment [seed [scene [speech.raw]]]      scene "": all; speech: 16 bits, 8 kHz, host byte order
// One JSON object a line:
//   delay_ms, delay_95_ms     median and 95th percentile of what is recognised again
//   second_ms                 median delay in each second; -1: nothing recognised
//   late                      packets of 1000 that came when their turn was over
//   concealed_ms, silent_ms   made up, and nothing heard though something was said, a second
//   changed_ms                left out or put in to move the delay, a second
//   click_db                  greatest second difference in the sine against the sine's own
//   r                         the E-model's (ITU-T G.107) of the median delay, and of concealed and silent as loss

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>
#include <string_view>
#include <vector>

#include "lib/extensions.h"
#include "lib/protocol.h"
#include "lib/tlv.h"
#include "lib/wire.h"
#include "media/channel.h"
#include "sim/endpoint.h"
#include "sim/world.h"

namespace {

using namespace protocol;
using sound = std::vector<std::int16_t>;

constexpr int seconds = 60, rate = 8000, packet_samples = 160, packet_ms = 20;
constexpr unsigned char wanted_codec[] = {0, 0};  // payload type 0, linear PCM
constexpr sim::endpoint far_end = sim::v4(203, 0, 113, 9, 5000);

/// One course of the network and the far end.
struct scene {
    std::string name;
    sim::path path = {};
    int loss_permille = 0;  ///< in bursts of this mean length (Gilbert)
    int burst_packets = 1;
    int rate_ppm = 0;                    ///< the far end's clock against the device's
    int held_ms = 0, held_every_ms = 0;  ///< from 10 s on, packets of this time arrive at its end; 0: once
};

/// Pulses of a gliding pitch and some noise through two resonances, in syllables.
sound make_speech(std::uint64_t seed) {
    sim::random_source random(seed);
    sound pcm(std::size_t{seconds} * rate);
    double history[2][2] = {}, formant[2] = {}, pitch = 60, glide = 0, since = 0;
    int left = 0;
    bool pause = false, voiced = true;
    for (std::int16_t& sample : pcm) {
        if (left-- == 0) {
            left = random.between(800, 2400);
            pause = random.chance(200);
            voiced = !random.chance(200);
            pitch = random.between(40, 95);
            glide = random.between(-10, 10) / 2000.0;
            formant[0] = random.between(300, 900), formant[1] = random.between(900, 2600);
        }
        double x = random.between(-100, 100) * (pause ? 0.2 : voiced ? 1.0 : 6.0);
        pitch = std::clamp(pitch + glide, 35.0, 110.0);
        if (++since >= pitch)
            since -= pitch, x += pause || !voiced ? 0 : 5000;
        for (int k = 0; k < 2; k++) {
            double const r = k == 0 ? 0.97 : 0.94;
            double const y =
                x + 2 * r * std::cos(2 * std::numbers::pi * formant[k] / rate) * history[k][0] - r * r * history[k][1];
            history[k][1] = history[k][0];
            history[k][0] = y;
            x = y / 3;
        }
        sample = static_cast<std::int16_t>(std::clamp(x * 3, -30000.0, 30000.0));
    }
    return pcm;
}

sound make_sine() {
    sound pcm(std::size_t{seconds} * rate);
    for (std::size_t i = 0; i < pcm.size(); i++)
        pcm[i] = static_cast<std::int16_t>(
            std::lround(8000 * std::sin(2 * std::numbers::pi * 397 * static_cast<double>(i) / rate)));
    return pcm;
}

/// A call from the far end to the telephone on line 0.
class listener : public sim::surroundings {
public:
    listener(scene const& course, sound const& speech, std::uint64_t seed)
        : played(course), said(speech), random(seed), world(*this, {.seed = seed}) {
        auto const command = [&](int tag, str const& fields) {
            world.command(cmd_get_tlv_str(tag, cmd_get_tlv_short(call_field, 0) + fields));
        };
        command(cmd_open::tag, cmd_get_tlv_str(cmd_open::call_id, str("listener")));
        str const linear(wanted_codec, sizeof wanted_codec);
        command(cmd_media::tag,
                cmd_get_tlv_str(cmd_media::send_codec, linear) + cmd_get_tlv_str(cmd_media::codec_map, linear) +
                    cmd_get_tlv_address(cmd_media::rtp_dest, ip_port(str(203, 0, 113, 9), far_end.port)));
        command(cmd_tdm_channel::tag, cmd_get_tlv_short(cmd_tdm_channel::slot, 0));
        world.run_ms(100);  // the first packet of the process tells its port
        began = world.now();
        world.at(time_of(0), 0);
        world.run_ms(seconds * 1000);
        counted = channels[0].get_playout().get_totals();
    }

    sound heard;       ///< from the beginning of the call, by the line's clock
    int first_ms = 0;  ///< when its first block was heard, as that block's end
    playout::totals counted;

    void sent(sim::endpoint const& from, sim::endpoint const& to, std::string_view) override {
        if (to == far_end)
            device = from;
    }
    sim::path route(sim::endpoint const& from, sim::endpoint const&) override {
        return from == far_end ? played.path : sim::path{};
    }
    void wake(int number) override {
        std::size_t const first = static_cast<std::size_t>(number) * packet_samples;
        if (first + packet_samples > said.size())
            return;
        if (!lost())
            send(number, said.data() + first);
        world.at(time_of(number + 1), number + 1);
    }
    void line(int, std::int16_t const* block, std::int16_t*) override {
        if (began == 0)
            return;
        if (heard.empty())
            first_ms = static_cast<int>((world.now() - began) / sim::ms);
        for (int i = 0; i < sim::block_samples; i++)
            heard.push_back(block ? block[i] : std::int16_t{0});
    }

private:
    /// When a packet is complete.
    std::int64_t time_of(int number) const {
        return began + (number + 1LL) * packet_ms * sim::ms * 1000000 / (1000000 + played.rate_ppm);
    }
    bool lost() {
        if (played.loss_permille == 0)
            return false;
        // Mean lengths of bursts and of what is between them give the loss.
        int const end_permille = 1000 / played.burst_packets;
        int const begin_permille = end_permille * played.loss_permille / (1000 - played.loss_permille);
        in_burst = in_burst ? !random.chance(end_permille) : random.chance(begin_permille);
        return in_burst;
    }
    void send(int number, std::int16_t const* samples) {
        std::string packet(12, '\0');
        auto* const header = reinterpret_cast<unsigned char*>(packet.data());
        header[0] = 0x80;
        wire::put16(header + 2, static_cast<unsigned>(number + 1) & 0xFFFF);
        wire::put32(header + 4, static_cast<unsigned>(number * packet_samples));
        wire::put32(header + 8, 0xFA12E9D);
        packet.append(reinterpret_cast<char const*>(samples), sizeof *samples * packet_samples);
        std::int64_t at_ms = (world.now() - began) / sim::ms - 10000;
        if (played.held_every_ms > 0 && at_ms >= 0)
            at_ms %= played.held_every_ms;
        if (at_ms >= 0 && at_ms < played.held_ms)
            world.deliver(far_end, device, packet, (played.held_ms - at_ms) * sim::ms);
        else
            world.transmit(far_end, device, packet);
    }

    scene const played;
    sound const& said;
    sim::random_source random;
    bool in_burst = false;
    sim::endpoint device;
    std::int64_t began = 0;
    sim::world world;
};

/// Where what is heard was in what was said: windows of 40 ms, by correlation.
class recogniser {
public:
    recogniser(sound const& speech, listener const& call, int ppm)
        : said(speech), heard(call.heard), first_ms(call.first_ms) {
        for (std::size_t at = 0; at + window <= heard.size(); at += window)
            place(static_cast<int>(at), ppm);
    }
    std::vector<int> delays;  ///< ms
    std::vector<int> by_second[seconds];
    int silent = 0;  ///< samples

private:
    static constexpr int window = 320, near = 480, furthest = 4 * rate;
    static constexpr double recognised = 0.85;

    void place(int at, int ppm) {
        for (int part = at; part < at + window; part += sim::block_samples)
            if (part >= lag && energy(heard, part, sim::block_samples) < 20.0 * 20.0 * sim::block_samples &&
                energy(said, part - lag, sim::block_samples) > 300.0 * 300.0 * sim::block_samples)
                silent += sim::block_samples;
        double const loudness = energy(heard, at, window);
        if (loudness < 20.0 * 20.0 * window)
            return;
        double best = 0;
        int found = search(at, lag - near, lag + near, loudness, best);
        if (best < recognised)
            found = search(at, 0, furthest, loudness, best);
        if (best < recognised)
            return;
        lag = found;
        // The far end said it by its own clock.
        double const said_ms = (at - lag) * 1e6 / (1e6 + ppm) / 8;
        int const delay_ms = static_cast<int>(std::lround(at / 8.0 + first_ms - said_ms));
        delays.push_back(delay_ms);
        by_second[std::min(at / rate, seconds - 1)].push_back(delay_ms);
    }
    static double energy(sound const& x, int at, int length) {
        double sum = 0;
        for (int i = 0; i < length && static_cast<std::size_t>(at + i) < x.size(); i++)
            sum +=
                double{static_cast<double>(x[static_cast<std::size_t>(at + i)])} * x[static_cast<std::size_t>(at + i)];
        return sum;
    }
    int search(int at, int from, int to, double loudness, double& best) const {
        int found = lag;
        for (int candidate = std::max(from, at + window - static_cast<int>(said.size())); candidate <= std::min(to, at);
             candidate++) {
            double cross = 0, other = 1;
            std::int16_t const* const a = heard.data() + at;
            std::int16_t const* const b = said.data() + (at - candidate);
            std::int64_t cross_sum = 0, other_sum = 0;
            for (int i = 0; i < window; i++)
                cross_sum += a[i] * b[i], other_sum += b[i] * b[i];
            cross = static_cast<double>(cross_sum), other += static_cast<double>(other_sum);
            double const alike = std::abs(cross) / std::sqrt(loudness * other);
            if (alike > best)
                best = alike, found = candidate;
        }
        return found;
    }

    sound const& said;
    sound const& heard;
    int first_ms;
    int lag = 30 * 8;
};

int percentile(std::vector<int> values, int percent) {
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    return values[(values.size() - 1) * static_cast<std::size_t>(percent) / 100];
}

/// R of G.107 with its defaults for G.711, whose Bpl is 25.1 with concealment and 4.3 without (G.113 Appendix I).
double rating(double delay_ms, double lost_percent, double burst_ratio, bool concealed) {
    double const bpl = concealed ? 25.1 : 4.3;
    double const late = delay_ms > 177.3 ? 0.11 * (delay_ms - 177.3) : 0;
    return std::max(0.0, 93.2 - 0.024 * delay_ms - late - 95 * lost_percent / (lost_percent / burst_ratio + bpl));
}

double click_db(sound const& sine, sound const& heard) {
    auto const steepest = [](sound const& x, std::size_t from) {
        int most = 1;
        for (std::size_t i = from + 2; i < x.size(); i++)
            most = std::max(most, std::abs(x[i] - 2 * x[i - 1] + x[i - 2]));
        return most;
    };
    return 20 * std::log10(static_cast<double>(steepest(heard, rate)) / steepest(sine, rate));
}

double ms_a_second(std::int64_t samples) {
    return static_cast<double>(samples) / 8 / seconds;
}

double click_of(scene const& s, sound const& sine, std::uint64_t seed) {
    listener const call(s, sine, seed);
    return click_db(sine, call.heard);
}

void print(scene const& s, bool extended, sound const& speech, sound const& sine, std::uint64_t seed) {
    extensions.playout = extended;
    double const click = click_of(s, sine, seed);
    listener const call(s, speech, seed);
    recogniser const found(speech, call, s.rate_ppm);
    int const delay = percentile(found.delays, 50);
    double const concealed = ms_a_second(call.counted.concealed), silent = ms_a_second(found.silent);
    double const r = rating(delay, (concealed + silent) / 10, s.burst_packets, extended);
    std::printf("{\"scene\":\"%s\",\"playout\":%d,\"click_db\":%.1f", s.name.c_str(), extended, click);
    std::printf(
        ",\"delay_ms\":%d,\"delay_95_ms\":%d,\"late\":%.1f,\"concealed_ms\":%.1f,\"silent_ms\":%.1f,"
        "\"changed_ms\":%.1f,\"r\":%.0f,\"second_ms\":[",
        delay, percentile(found.delays, 95), 1000.0 * call.counted.late / (seconds * 50), concealed, silent,
        ms_a_second(call.counted.cut + call.counted.stretched), r);
    for (int i = 0; i < seconds; i++)
        std::printf("%s%d", i ? "," : "", percentile(found.by_second[i], 50));
    std::printf("]}\n");
    std::fflush(stdout);
}

std::vector<scene> courses() {
    std::vector<scene> all = {{.name = "clean"}};
    for (int const percent : {1, 3, 5, 10})
        all.push_back({.name = "loss " + std::to_string(percent) + " %", .loss_permille = 10 * percent});
    for (int const percent : {1, 3, 5, 10})
        all.push_back({.name = "bursts of 3, " + std::to_string(percent) + " %",
                       .loss_permille = 10 * percent,
                       .burst_packets = 3});
    for (int const jitter_ms : {5, 20, 60})
        all.push_back({.name = "jitter " + std::to_string(jitter_ms) + " ms", .path = {.jitter_us = 1000 * jitter_ms}});
    for (int const held_ms : {60, 200, 1000})
        all.push_back({.name = "stall of " + std::to_string(held_ms) + " ms", .held_ms = held_ms});
    all.push_back({.name = "spikes of 100 ms, every 3 s", .held_ms = 100, .held_every_ms = 3000});
    for (int const ppm : {-20000, -200, 200, 20000})
        all.push_back({.name = "sender " + std::to_string(ppm) + " ppm", .rate_ppm = ppm});
    all.push_back({.name = "jitter 20 ms, loss 3 %", .path = {.jitter_us = 20000}, .loss_permille = 30});
    all.push_back({.name = "jitter 60 ms, bursts 5 %, 200 ppm",
                   .path = {.jitter_us = 60000},
                   .loss_permille = 50,
                   .burst_packets = 3,
                   .rate_ppm = 200});
    return all;
}

sound read(char const* path) {
    sound pcm(std::size_t{seconds} * rate);
    std::FILE* const file = std::fopen(path, "rb");
    std::size_t const got = file ? std::fread(pcm.data(), sizeof pcm[0], pcm.size(), file) : 0;
    if (got < rate) {
        std::fprintf(stderr, "impairment: no speech in %s\n", path);
        std::exit(EXIT_FAILURE);
    }
    std::fclose(file);
    for (std::size_t i = got; i < pcm.size(); i++)
        pcm[i] = pcm[i - got];
    return pcm;
}

}  // namespace

int main(int argc, char** argv) {
    std::uint64_t const seed = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    sound const speech = argc > 3 ? read(argv[3]) : make_speech(seed);
    sound const sine = make_sine();
    std::string_view const wanted = argc > 2 ? argv[2] : "";
    for (scene const& course : courses()) {
        if (!wanted.empty() && course.name != wanted)
            continue;
        for (bool const extended : {false, true})
            print(course, extended, speech, sine, seed);
    }
}
