// bcg729's coder on the signal of bench/codecs.cpp, which runs this: prints the ns that a 10 ms frame takes it to
// encode and to decode. A program of its own because bcg729's licence, the GPL, covers what is linked with it; nothing
// else is.
//
//     bcg729_peer ROUNDS
#include <cstdio>
#include <cstdlib>

extern "C" {
#include <bcg729/decoder.h>
#include <bcg729/encoder.h>
}

#include "bench/stopwatch.h"
#include "tests/support/signals.h"

namespace {

constexpr std::size_t blocks = 200;
constexpr std::size_t frame_samples = 80;
constexpr std::size_t frame_bytes = 10;

}  // namespace

int main(int argc, char** argv) {
    int const rounds = argc == 2 ? std::atoi(argv[1]) : 0;
    if (rounds < 1) {
        std::fprintf(stderr, "usage: bcg729_peer ROUNDS\n");
        return EXIT_FAILURE;
    }
    signals::samples const pcm = signals::speech_like(static_cast<int>(blocks * frame_samples), 12000, 1);
    signals::bytes payload(blocks * frame_bytes);
    signals::samples decoded(pcm.size());
    auto* const encoder = initBcg729EncoderChannel(0);
    auto* const decoder = initBcg729DecoderChannel();
    std::vector<stopwatch::contestant> both{
        {"encode",
         [&] {
             std::uint8_t length = 0;
             for (std::size_t i = 0; i < blocks; i++)
                 bcg729Encoder(encoder, &pcm[i * frame_samples], &payload[i * frame_bytes], &length);
         },
         blocks},
        {"decode",
         [&] {
             for (std::size_t i = 0; i < blocks; i++)
                 bcg729Decoder(decoder, &payload[i * frame_bytes], frame_bytes, 0, 0, 0, &decoded[i * frame_samples]);
         },
         blocks}};
    stopwatch::race(both, rounds);
    std::printf("%.1f %.1f\n", both[0].least_ns, both[1].least_ns);
    closeBcg729EncoderChannel(encoder);
    closeBcg729DecoderChannel(decoder);
    return EXIT_SUCCESS;
}
