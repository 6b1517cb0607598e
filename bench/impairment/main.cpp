// What a bad network does to speech, mouth to ear: a minute for each network. A far end sends speech (made here, or of
// a file) in packets of 20 ms; what is heard is compared with it. The same again with a sine, in which a click shows.
// Everything follows from the seed; arrivals are the same for every player.
// usage: impairment [seed [network [speech.raw]]]
//            simulated calls to this process (sim/), without and with the extension `playout`; network "": all, of
//            linear PCM, then the codecs with a state on three of them. Speech: 16 bits, 8 kHz, host byte order
//        impairment --write FOLDER [seed [speech.raw]]
//            for players that run in real time: FOLDER/speech.raw, sine.raw, and networks: a JSON object a line with
//            the packets' arrivals in microseconds (negative: lost)
//        impairment --judge FOLDER PLAYER
//            what such a player played: FOLDER/PLAYER/N.speech and N.sine, raw from the beginning of the call, of
//            network N from 0; what is not there is left out
// One JSON object a line:
//   delay_ms, delay_95_ms     median and 95th percentile of what is recognised again
//   second_ms                 median delay in each second; -1: nothing recognised
//   silent_ms, altered_ms     nothing, and not what was said (error above -20 dB) heard while something was said, a
//   second distance_db               spectral distance of what is heard to what was said click_db greatest second
//   difference in the sine against the sine's own r                         the E-model's (ITU-T G.107) of the median
//   delay, and of what is altered as loss; null: the
//                             codec has no Ie
// and of this process:
//   late                      packets of 1000 that came when their turn was over
//   concealed_ms              made up, a second
//   changed_ms                left out or put in to move the delay, a second

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "bench/impairment/judge.h"
#include "bench/impairment/listener.h"
#include "bench/impairment/network.h"
#include "bench/impairment/speech.h"
#include "lib/extensions.h"
#include "lib/protocol.h"

namespace {

constexpr int seconds = 60, packets = seconds * 1000 / packet_ms;

struct signals {
    sound speech, sine;
};

struct judged_codec {
    int number;
    bool has_impairment;           ///< G.113 knows its Ie
    loss_terms silent, concealed;  ///< lost speech is silence, or made up
};
/// Bpl of G.711 with silence for all; of GSM with concealment that of the enhanced full rate, as the full rate has
/// none.
constexpr judged_codec linear = {protocol::codec_number::linear, true, {0, 4.3}, {0, 25.1}};
constexpr judged_codec codecs_with_state[] = {
    {protocol::codec_number::g729, true, {11, 4.3}, {11, 19}},
    {protocol::codec_number::gsm, true, {20, 4.3}, {20, 10}},
    {protocol::codec_number::g722, false, {}, {}},
};

void print_heading(network const& course, char const* player, int codec) {
    std::printf(R"({"network":"%s","player":"%s","codec":"%s")", course.name.c_str(), player,
                protocol::codec_formats[codec].name);
}

void print_verdict(verdict const& found, double click) {
    std::printf(R"(,"click_db":%.1f,"delay_ms":%d,"delay_95_ms":%d,"silent_ms":%.1f,"altered_ms":%.1f)", click,
                found.delay_ms, found.delay_95_ms, found.silent_ms, found.altered_ms);
    std::printf(R"(,"distance_db":%.2f,"second_ms":[)", found.distance_db);
    for (std::size_t i = 0; i < found.second_ms.size(); i++)
        std::printf("%s%d", i ? "," : "", found.second_ms[i]);
    std::printf("]");
}

void print_rating(verdict const& found, network const& course, double lost, std::optional<loss_terms> terms) {
    if (terms)
        std::printf(",\"r\":%.0f", rating(found.delay_ms, lost, course.burst_packets, *terms));
    else
        std::printf(",\"r\":null");
}

double ms_a_second(std::int64_t samples) {
    return static_cast<double>(samples) / samples_a_ms / seconds;
}

double lost_percent(network const& course, std::uint64_t seed) {
    auto const arrivals = arrivals_us(course, seed, packets);
    auto const lost = std::count_if(arrivals.begin(), arrivals.end(), [](std::int64_t at) { return at < 0; });
    return 100.0 * static_cast<double>(lost) / packets;
}

/// A call to this process.
void simulate(network const& course, bool extended, judged_codec const& codec, signals const& said,
              std::uint64_t seed) {
    extensions.playout = extended;
    double const click = click_db(said.sine, listener(course, said.sine, seed, codec.number).heard);
    listener const call(course, said.speech, seed, codec.number);
    verdict const found = judge(said.speech, call.heard, course.sender_ppm);
    double const concealed = ms_a_second(call.counted.concealed);
    double const lost = codec.number == linear.number ? found.altered_ms / 10 : lost_percent(course, seed);
    std::optional<loss_terms> terms;
    if (codec.has_impairment)
        terms = extended ? codec.concealed : codec.silent;

    print_heading(course, extended ? "playout" : "default", codec.number);
    print_verdict(found, click);
    print_rating(found, course, lost, terms);
    std::printf(",\"late\":%.1f,\"concealed_ms\":%.1f,\"changed_ms\":%.1f}\n", 1000.0 * call.counted.late / packets,
                concealed, ms_a_second(call.counted.cut + call.counted.stretched));
    std::fflush(stdout);
}

void simulate_all(std::string_view wanted, signals const& said, std::uint64_t seed) {
    for (network const& course : networks())
        if (wanted.empty() || course.name == wanted)
            for (bool const extended : {false, true})
                simulate(course, extended, linear, said, seed);
    for (judged_codec const& codec : codecs_with_state)
        for (network const& course : networks())
            if (wanted.empty() &&
                (course.name == "clean" || course.name == "loss 5 %" || course.name == "bursts of 3, 5 %"))
                for (bool const extended : {false, true})
                    simulate(course, extended, codec, said, seed);
}

void write(std::string const& path, sound const& pcm) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<char const*>(pcm.data()), static_cast<std::streamsize>(pcm.size() * sizeof pcm[0]));
}

void write_all(std::string const& folder, signals const& said, std::uint64_t seed) {
    write(folder + "/speech.raw", said.speech);
    write(folder + "/sine.raw", said.sine);
    std::ofstream list(folder + "/networks");
    for (network const& course : networks()) {
        char const* separator = R"(","arrivals_us":[)";
        list << R"({"network":")" << course.name;
        for (std::int64_t const at : arrivals_us(course, seed, packets)) {
            list << separator << at;
            separator = ",";
        }
        list << "]}\n";
    }
    if (!list.flush()) {
        std::fprintf(stderr, "impairment: cannot write in %s\n", folder.c_str());
        std::exit(EXIT_FAILURE);
    }
}

sound read(std::string const& path) {
    sound pcm(std::size_t{seconds} * sample_rate);
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(pcm.data()), static_cast<std::streamsize>(pcm.size() * sizeof pcm[0]));
    pcm.resize(static_cast<std::size_t>(file.gcount()) / sizeof pcm[0]);
    return pcm;
}

void judge_all(std::string const& folder, char const* player) {
    signals const said = {read(folder + "/speech.raw"), read(folder + "/sine.raw")};
    int number = 0;
    for (network const& course : networks()) {
        std::string const played = folder + "/" + player + "/" + std::to_string(number++);
        sound const speech = read(played + ".speech"), sine = read(played + ".sine");
        if (speech.empty() || sine.empty())
            continue;
        verdict const found = judge(said.speech, speech, course.sender_ppm);
        print_heading(course, player, linear.number);
        print_verdict(found, click_db(said.sine, sine));
        print_rating(found, course, found.altered_ms / 10, linear.concealed);
        std::printf("}\n");
    }
}

signals make_signals(std::uint64_t seed, char const* path) {
    return {path ? read_speech(path, seconds) : make_speech(seed, seconds), make_sine(seconds)};
}

std::uint64_t seed_of(char const* text) {
    return text ? std::strtoull(text, nullptr, 10) : 1;
}

}  // namespace

int main(int argc, char** argv) {
    auto const argument = [&](int i) { return i < argc ? argv[i] : nullptr; };
    std::string_view const mode = argc > 1 ? argv[1] : "";
    if (mode == "--judge" && argc == 4) {
        judge_all(argv[2], argv[3]);
    } else if (mode == "--write" && argc > 2) {
        std::uint64_t const seed = seed_of(argument(3));
        write_all(argv[2], make_signals(seed, argument(4)), seed);
    } else {
        std::uint64_t const seed = seed_of(argument(1));
        simulate_all(argc > 2 ? argv[2] : "", make_signals(seed, argument(3)), seed);
    }
}
