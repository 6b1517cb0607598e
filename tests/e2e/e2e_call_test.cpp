#include <gtest/gtest.h>

#include "tests/e2e/media_process.h"
#include "tests/support/signals.h"

namespace {

constexpr int block = 80;

/// A call over real sockets and devices; what calls do to the byte is known from the simulated world (tests/sim).
struct Call : testing::Test {
    signals::samples const voices[3] = {voice(1), voice(2), voice(3)};
    telephones lines{{recording(voices[0]), recording(voices[1]), recording(voices[2])}};
    controlled_process process{lines};

    static signals::samples voice(unsigned seed) { return signals::speech_like(2 * 8000, 8000, seed); }
    static fxsline::speech recording(signals::samples const& pcm) {
        return fxsline::speech::recording(pcm, false, "test");
    }
};

TEST_F(Call, CarriesEverySampleBothWaysAndEnds) {
    process.connect(0, 1);
    process.put_on_line(0, 0);
    process.put_on_line(1, 1);
    lines.wait_for_open(2);
    lines.run(230);
    for (unsigned listener : {0, 1}) {
        signals::samples const &said = voices[1 - listener], &heard = lines.heard(listener);
        auto const at = std::search(heard.begin(), heard.end(), said.begin(), said.end()) - heard.begin();
        EXPECT_GE(at, block);
        EXPECT_LE(at, 6 * block) << "20 ms packets, one block in the line's queue";
    }
    process.end(0);
    process.end(1);
    lines.wait_for_open(0);
    EXPECT_NE(process.open(0).rtp_port, 0);
}

TEST_F(Call, MixesThreeParties) {
    process.connect(0, 2);
    process.connect(1, 3);
    for (auto const& [call, line] : {std::pair{0, 0}, {1, 0}, {2, 1}, {3, 2}})
        process.put_on_line(static_cast<std::uint16_t>(call), static_cast<std::uint16_t>(line));
    lines.wait_for_open(3);
    lines.run(230);
    // Every party hears the sum of the two others, each shifted by its own path's delay.
    for (unsigned listener = 0; listener < 3; listener++) {
        signals::samples const &a = voices[(listener + 1) % 3], &b = voices[(listener + 2) % 3];
        signals::samples const& heard = lines.heard(listener);
        auto const at = [](signals::samples const& pcm, int i) { return pcm[static_cast<std::size_t>(i)]; };
        auto const explains = [&](int delay_a, int delay_b) {
            for (int i = 8000; i < 9600; i++)
                if (at(heard, i) != std::clamp(at(a, i - delay_a) + at(b, i - delay_b), -32768, 32767))
                    return false;
            return true;
        };
        bool explained = false;
        for (int i = 0; i < 15 * 15 && !explained; i++)
            explained = explains((1 + i / 15) * block, (1 + i % 15) * block);
        EXPECT_TRUE(explained) << "party " << listener;
    }
}

}  // namespace
