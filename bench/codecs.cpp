// What coding 10 ms of speech costs, next to other libraries on the same samples in the same run, as a Markdown table
// on standard output. Ours goes the way of a call: blocks of 10 ms through codec.h, which returns strings of the pool.
//
//     codecs [--rounds N] [--only NAME]
//
// Ends with status 1 when coding took memory from the system after the first round. Instructions instead of time, which
// no load of the machine disturbs (in the build folder):
//
//     valgrind --tool=callgrind --toggle-collect='codec::encode(int, str const&)' bench/codecs --rounds 1
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bench/codec_peers.h"
#include "bench/stopwatch.h"
#include "codecs/codec.h"
#include "tests/support/signals.h"

namespace {

using signals::samples;
using stopwatch::contestant;

constexpr int seconds = 2;
constexpr int block_samples = 80;
constexpr int blocks = seconds * 100;

struct codec_row {
    int number;
    char const* name;
    int packet_blocks;  ///< 10 ms blocks in the payload that is decoded at once
};
constexpr codec_row rows[] = {
    {codec::mu_law, "mu-law", 1}, {codec::a_law, "a-law", 1},  {codec::gsm_full_rate, "gsm", 2},
    {codec::g722_64, "g722", 1},  {codec::g726_32, "g726", 1}, {codec::g729, "g729", 1},
};

str block_of(samples const& pcm, int i) {
    return str(reinterpret_cast<unsigned char const*>(&pcm[static_cast<std::size_t>(i * block_samples)]),
               2 * block_samples);
}

std::vector<str> payloads_of(codec_row const& row, std::vector<str> const& input) {
    codec coder;
    std::vector<str> packets;
    str collected;
    for (std::size_t i = 0; i < input.size(); i++) {
        collected += coder.encode(row.number, input[i]);
        if ((i + 1) % static_cast<std::size_t>(row.packet_blocks) == 0) {
            packets.push_back(collected);
            collected.clear();
        }
    }
    return packets;
}

/// Adds up what our coders took from the system after their first round.
struct memory_watch {
    std::uint64_t taken = 0;
    bool warm = false;

    void run(std::function<void()> const& work) {
        std::uint64_t const before = str::allocated_size;
        work();
        if (warm)
            taken += str::allocated_size - before;
        warm = true;
    }
};

/// Ours comes first.
void print_row(char const* name, char const* direction, std::vector<contestant> const& all) {
    contestant const* fastest = nullptr;
    std::string others;
    for (contestant const& one : all) {
        if (&one == all.data())
            continue;
        char text[64];
        std::snprintf(text, sizeof text, "%s%s %.0f", others.empty() ? "" : ", ", one.name.c_str(), one.least_ns);
        others += text;
        if (fastest == nullptr || one.least_ns < fastest->least_ns)
            fastest = &one;
    }
    std::printf("| %s | %s | %.0f | %s | ", name, direction, all[0].least_ns, others.empty() ? "none" : others.c_str());
    if (fastest != nullptr)
        std::printf("%.2f |\n", all[0].least_ns / fastest->least_ns);
    else
        std::printf("|\n");
    std::fflush(stdout);
}

/// Encoding and decoding times of bcg729, which is in a program of its own: its licence is the GPL.
void add_bcg729(codec_peers::entries& to, int rounds) {
#ifdef BENCH_BCG729_PEER
    std::string const command = BENCH_BCG729_PEER " " + std::to_string(rounds);
    FILE* const peer = popen(command.c_str(), "r");
    contestant encoder{"bcg729", [] {}};
    contestant decoder{"bcg729", [] {}};
    if (peer != nullptr && std::fscanf(peer, "%lf %lf", &encoder.least_ns, &decoder.least_ns) == 2) {
        to.encoders.push_back(encoder);
        to.decoders.push_back(decoder);
    } else {
        std::fprintf(stderr, "bcg729_peer does not answer\n");
    }
    if (peer != nullptr)
        pclose(peer);
#else
    static_cast<void>(to);
    static_cast<void>(rounds);
#endif
}

/// Returns the bytes that coding took from the system.
std::uint64_t compare(codec_row const& row, samples const& pcm, samples const& wide, int rounds) {
    std::vector<str> input;
    for (int i = 0; i < blocks; i++)
        input.push_back(block_of(pcm, i));
    std::vector<str> const packets = payloads_of(row, input);
    auto const coder = std::make_unique<codec>();
    memory_watch encoding;
    memory_watch decoding;
    contestant const encode{"ours",
                            [&] {
                                encoding.run([&] {
                                    for (str const& block : input)
                                        stopwatch::use(coder->encode(row.number, block));
                                });
                            },
                            blocks};
    contestant const decode{"ours",
                            [&] {
                                decoding.run([&] {
                                    for (str const& payload : packets)
                                        stopwatch::use(coder->decode(row.number, payload));
                                });
                            },
                            blocks};
    codec_peers::entries peers = codec_peers::of_codec(row.number, pcm, wide);
    peers.encoders.insert(peers.encoders.begin(), encode);
    peers.decoders.insert(peers.decoders.begin(), decode);
    stopwatch::race(peers.encoders, rounds);
    stopwatch::race(peers.decoders, rounds);
    if (row.number == codec::g729)
        add_bcg729(peers, rounds);
    print_row(row.name, "encode", peers.encoders);
    print_row(row.name, "decode", peers.decoders);
    return encoding.taken + decoding.taken;
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 30;
    char const* only = nullptr;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--rounds") == 0)
            rounds = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--only") == 0)
            only = argv[i + 1];
    }
    if (argc % 2 == 0 || rounds < 1) {
        std::fprintf(stderr, "usage: codecs [--rounds N] [--only NAME]\n");
        return EXIT_FAILURE;
    }
    samples const pcm = signals::speech_like(blocks * block_samples, 12000, 1);
    samples const wide = signals::speech_like(2 * blocks * block_samples, 12000, 1, 16000);
    std::printf("| codec | | ours, ns per 10 ms | others | ours / fastest |\n|---|---|--:|---|--:|\n");
    std::uint64_t taken = 0;
    for (codec_row const& row : rows) {
        if (only == nullptr || std::strcmp(only, row.name) == 0)
            taken += compare(row, pcm, wide, rounds);
    }
    std::printf("\nMemory taken from the system while coding: %llu bytes.\n", static_cast<unsigned long long>(taken));
    return taken == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
