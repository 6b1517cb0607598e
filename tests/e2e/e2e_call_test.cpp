#include <gtest/gtest.h>

#include <cmath>

#include "tests/e2e/media_process.h"
#include "tests/support/signals.h"

using namespace std::chrono_literals;

namespace {

constexpr protocol::codec_choice linear{0, 100};
constexpr protocol::codec_choice mu_law{1, 0};
constexpr protocol::codec_choice a_law{2, 8};
constexpr int block = 80;

fxsline::speech recording(signals::samples const& pcm) {
    return fxsline::speech::recording(pcm, false, "test");
}

signals::samples voice(unsigned seed) {
    return signals::speech_like(2 * 8000, 8000, seed);
}

/// Where `said` begins in `heard` to the sample; -1 when it is not there.
int position_of(signals::samples const& said, signals::samples const& heard) {
    auto const found = std::search(heard.begin(), heard.end(), said.begin(), said.end());
    return found == heard.end() ? -1 : static_cast<int>(found - heard.begin());
}

double rms(signals::samples const& pcm, std::size_t from, std::size_t n) {
    double sum = 0;
    for (std::size_t i = from; i < std::min(from + n, pcm.size()); i++)
        sum += double(pcm[i]) * pcm[i];
    return std::sqrt(sum / static_cast<double>(n));
}

TEST(call, carries_every_sample_both_ways) {
    signals::samples const first = voice(1);
    signals::samples const second = voice(2);
    telephones lines({recording(first), recording(second)});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.connect(0, 1, linear);
    process.put_on_line(0, 0);
    process.put_on_line(1, 1);
    ASSERT_TRUE(lines.wait_for_open(2));
    lines.run(230);
    int const at_second = position_of(first, lines.heard(1));
    int const at_first = position_of(second, lines.heard(0));
    EXPECT_GE(at_second, block);
    EXPECT_LE(at_second, 6 * block) << "20 ms packets, one block in the line's queue";
    EXPECT_GE(at_first, block);
    EXPECT_LE(at_first, 6 * block);
}

TEST(call, compands_and_inverts_g711) {
    for (protocol::codec_choice const codec : {mu_law, a_law}) {
        signals::samples const said = voice(3);
        telephones lines({recording(said)});
        controlled_process process({"--tdm", lines.tdm_path()});
        process.connect(2, 7, codec);
        process.put_on_line(2, 0);
        process.put_on_line(7, 3);
        ASSERT_TRUE(lines.wait_for_open(2));
        lines.run(220);
        signals::samples const& heard = lines.heard(3);
        std::size_t best = 0;
        double least = 1e9;
        for (std::size_t shift = block; shift < 8 * block; shift++) {
            double error = 0;
            for (std::size_t i = 0; i < 8000; i++)
                error += std::abs(heard[shift + i] + said[i]);
            if (error < least) {
                least = error;
                best = shift;
            }
        }
        EXPECT_LE(best, 6u * block);
        EXPECT_LT(least / 8000, 0.05 * rms(said, 0, 8000)) << "codec " << int(codec.codec);
    }
}

TEST(call, plays_a_key_press_once_as_tone_at_the_far_end) {
    telephones lines({recording(voice(4))});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.connect(0, 1, mu_law, protocol::media_command{.event_payload_type = 101});
    process.put_on_line(0, 0);
    process.put_on_line(1, 1);
    ASSERT_TRUE(lines.wait_for_open(2));
    lines.run(20);
    process.send(protocol::encode(protocol::dtmf_command{.call = 0, .digit = 5}));
    process.settle();
    std::size_t const pressed = lines.heard(1).size();
    lines.run(70);
    signals::samples const& heard = lines.heard(1);
    // 770 and 1336 Hz for about 380 ms; silence around them although the telephone goes on speaking.
    int loud_blocks = 0;
    int changes = 0;
    bool loud_before = false;
    for (std::size_t at = pressed; at + block <= pressed + 50 * block; at += block) {
        bool const loud = rms(heard, at, block) > 300;
        changes += loud != loud_before;
        loud_before = loud;
        loud_blocks += loud;
    }
    EXPECT_GE(loud_blocks, 30);
    EXPECT_LE(loud_blocks, 42);
    EXPECT_LE(changes, 4) << "one uninterrupted tone";
}

TEST(call, plays_a_progress_tone_to_the_line) {
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.open(0);
    process.put_on_line(0, 0);
    ASSERT_TRUE(lines.wait_for_open(1));
    process.send(protocol::encode(protocol::playback_command{.call = 0, .tone_set = 1, .kind = 4}));
    process.settle();
    lines.run(60);
    EXPECT_NEAR(rms(lines.heard(0), 20 * block, 30 * block), 2048, 60) << "two sines of 1/16 of full scale";
    process.send(protocol::encode(protocol::playback_command{.call = 0}));
    process.settle();
    lines.run(10);
    std::size_t const silent_from = lines.heard(0).size();
    lines.run(20);
    EXPECT_EQ(rms(lines.heard(0), silent_from, 20 * block), 0);
}

TEST(call, mixes_three_parties) {
    signals::samples const voices[] = {voice(5), voice(6), voice(7)};
    telephones lines({recording(voices[0]), recording(voices[1]), recording(voices[2])});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.connect(0, 2, linear);
    process.connect(1, 3, linear);
    process.put_on_line(0, 0);
    process.put_on_line(1, 0);
    process.put_on_line(2, 1);
    process.put_on_line(3, 2);
    ASSERT_TRUE(lines.wait_for_open(3));
    lines.run(230);
    // Every party hears the sum of the two others, each shifted by its own path's delay.
    for (unsigned listener = 0; listener < 3; listener++) {
        signals::samples const& a = voices[(listener + 1) % 3];
        signals::samples const& b = voices[(listener + 2) % 3];
        signals::samples const& heard = lines.heard(listener);
        bool explained = false;
        for (std::size_t da = block; da < 16 * block && !explained; da += block) {
            for (std::size_t db = block; db < 16 * block && !explained; db += block) {
                explained = true;
                for (std::size_t i = 8000; i < 9600 && explained; i++)
                    explained = heard[i] == std::clamp(a[i - da] + b[i - db], -32768, 32767);
            }
        }
        EXPECT_TRUE(explained) << "party " << listener;
    }
}

TEST(call, ends_and_leaves_the_line_closed) {
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.connect(0, 1, mu_law);
    process.put_on_line(0, 0);
    ASSERT_TRUE(lines.wait_for_open(1));
    lines.run(10);
    process.send(protocol::encode(protocol::end_command{.call = 0}));
    EXPECT_TRUE(lines.wait_for_open(0));
    process.send(protocol::encode(protocol::end_command{.call = 1}));
    process.settle();
    protocol::open_reply const again = process.open(0);
    EXPECT_NE(again.rtp_port, 0);
}

}  // namespace
