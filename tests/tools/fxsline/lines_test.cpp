// The lines without FUSE: speech, queues, counters, the LED's timeline, scripts.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <cmath>
#include <numbers>
#include <random>

#include "tests/tools/child.h"
#include "tests/tools/fxsline/fixtures.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/pipe_script.h"

namespace fxsline {
namespace {

void write_wav(std::string const& path, int rate, int channels, std::vector<float> const& values) {
    SF_INFO info{.samplerate = rate, .channels = channels, .format = SF_FORMAT_WAV | SF_FORMAT_FLOAT};
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    sf_write_float(file, values.data(), static_cast<sf_count_t>(values.size()));
    sf_close(file);
}

/// Random operations against two plain queues.
TEST(simulated_line, agrees_with_a_model_over_random_operations) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    constexpr unsigned speech_samples = 300000;  // about half of the time
    simulated_line line({.says = speech::recording(counting(speech_samples), false, ""),
                         .from_clock_start = true,
                         .backlog_blocks = 3,
                         .play_queue_blocks = 2});
    samples heard, heard_model, backlog, queue;
    line.tap_heard([&](block const& b) { heard.insert(heard.end(), b.begin(), b.end()); });
    unsigned opens = 0;
    uint64_t spoken = 0, overruns = 0, underruns = 0;
    bool losing = false;   // speech, since the last read or close
    bool flowing = false;  // whole blocks into an open device, since the last clear
    auto const take = [](samples& from, std::ptrdiff_t count) {
        samples taken(from.begin(), from.begin() + std::min(count, std::ssize(from)));
        from.erase(from.begin(), from.begin() + std::ssize(taken));
        return taken;
    };
    for (int step = 0; step < 20000; step++) {
        unsigned const what = random() % 8;
        if (what == 0) {
            EXPECT_EQ(line.open_device(), opens++ == 0);
        } else if (what == 1 && opens > 0) {
            EXPECT_EQ(line.close_device(), --opens == 0);
            losing = losing && opens > 0;
            flowing = flowing && opens > 0;
            backlog.resize(opens > 0 ? backlog.size() : 0);
        } else if (what == 2) {
            samples out(random() % 300);
            samples const expected = take(backlog, std::ssize(out));
            out.resize(line.read(out));
            ASSERT_EQ(out, expected);
            losing = false;
        } else if (what == 3) {
            samples const in = counting(random() % 200, static_cast<int16_t>(random()));
            size_t const taken = std::min(in.size(), 160 - queue.size());
            ASSERT_EQ(line.write(in), taken);
            queue.insert(queue.end(), in.begin(), in.begin() + static_cast<std::ptrdiff_t>(taken));
        } else if (what == 4) {
            ASSERT_EQ(line.clear_tx(), queue.size());
            queue.clear();
            flowing = false;
        } else {
            bool const stops = std::exchange(flowing, opens > 0 && queue.size() >= 80) && queue.size() < 80;
            queue.resize(std::max<size_t>(queue.size(), 80));  // with silence
            std::ranges::copy(take(queue, 80), std::back_inserter(heard_model));
            for (int i = 0; i < 80; i++, spoken++)
                if (opens > 0)
                    backlog.push_back(static_cast<int16_t>(spoken < speech_samples ? spoken + 1 : 0));
            bool const overrun = backlog.size() > 240;
            tick_report const seen = line.tick();
            ASSERT_EQ(seen.overrun_began, overrun && !losing);
            ASSERT_EQ(seen.underrun, stops);
            ASSERT_EQ(seen.speech_ended, spoken == speech_samples);
            underruns += stops;
            overruns += overrun;
            losing |= overrun;
            take(backlog, std::ssize(backlog) - std::min<std::ptrdiff_t>(std::ssize(backlog), 240));
        }
        ASSERT_EQ(line.samples_to_read(), backlog.size());
        ASSERT_EQ(line.samples_to_play(), queue.size());
        ASSERT_EQ(line.writable(), queue.size() <= 80);
    }
    EXPECT_EQ(heard, heard_model);
    EXPECT_EQ(line.counters().overruns, overruns);
    EXPECT_EQ(line.counters().underruns, underruns);
}

TEST(speech, tone_has_its_frequencies_and_level_for_a_minute) {
    speech tone = *parse_speech("tone 440.5+1000 -20\n").value;
    level_meter meter;
    for (int i = 0; i < 480000;) {
        block said;
        tone.next(said);
        meter.add(said);
        for (int16_t const sample : said) {
            double const angle = 2 * std::numbers::pi * i++ / 8000;
            ASSERT_NEAR(sample, 3276.7 * (std::sin(440.5 * angle) + std::sin(1000 * angle)), 0.51) << i;
        }
    }
    EXPECT_NEAR(meter.dbfs(), -16.99, 0.02);  // two of -20
    EXPECT_NEAR(meter.peak(), 6553, 5);
}

/// A part of the reason, commands that are refused for it; the first row's are taken.
std::string const speech_commands = R"(
|silence|tone 3900+697.5 -90|loop stereo
not a speech command|silence 1|wav
frequency and level|tone 440 -20 x
100 to 3900|tone 99.9 -20|tone 440+ -20|tone nan -20
-90 to 0|tone 440 1|tone 440 -20dB
16000 samples a second|wav wide
no samples|wav empty
can't open|wav pipe
)";

TEST(speech, commands_are_taken_or_refused_with_a_reason) {
    temporary_directory const directory;
    write_wav(directory.path("stereo"), 8000, 2, {0.5F, 0.25F, -0.75F, -0.25F});
    write_wav(directory.path("wide"), 16000, 1, {0});
    write_wav(directory.path("empty"), 8000, 1, {});
    ASSERT_EQ(mkfifo(directory.path("pipe").c_str(), 0600), 0);
    for (std::string const& row : split(speech_commands.substr(1), '\n')) {
        std::vector<std::string> commands = split(row, '|');
        for (std::string& command : std::span(commands).subspan(1)) {
            if (command.starts_with("wav ") || command.starts_with("loop "))
                command.insert(command.find(' ') + 1, directory.path(""));
            auto const parsed = parse_speech(command);
            EXPECT_NE(parsed.error.find(commands[0]), std::string::npos) << command << ": " << parsed.error;
            EXPECT_EQ(parsed.value ? parsed.value->describe() : "", commands[0].empty() ? command : "");
        }
    }
    block out;
    load_speech(directory.path("stereo"), true).value->next(out);
    EXPECT_EQ(samples(out.begin(), out.begin() + 3), (samples{12288, -16384, 12288}));
}

TEST(led_timeline, draws_flashes_that_come_a_tick_early_or_late) {
    led_timeline led;
    for (uint64_t const on_ms : {120U, 220U, 330U, 1000U}) {
        led.add({on_ms, true});
        led.add({on_ms + (on_ms == 220 ? 40 : 50), false});
    }
    EXPECT_EQ(led.drawing(124), "");
    EXPECT_EQ(led.drawing(1169), "#.#.#.............#.");
    led.add({2000, true});
    EXPECT_EQ(led.drawing(61500), std::string(10, '.') + std::string(1190, '#')) << "the last minute";
    for (uint64_t i = 0; i < 10000; i++)
        led.add({3000 + i, true});
    EXPECT_EQ(led.commands().size(), 10000U);
    EXPECT_EQ(led.commands().front().time_ms, 3000U);
}

TEST(pipe_script, rows_become_bytes_or_are_refused) {
    auto const parsed = parse_pipe_script("20 off-hook 1\n# no\n\n10 A\\r\\nB\\n\\c\n86400000  \\\\\\x41\\x00");
    std::string sent;
    for (scripted_text const& text : parsed.value.value_or(pipe_script{}))
        sent += std::to_string(text.time_ms) + ":" + text.bytes;
    using namespace std::string_literals;
    EXPECT_EQ(sent, "20:off-hook 1\r\n10:A\r\nB\n86400000: \\A\0\r\n"s) << parsed.error;
    for (char const* row : {"86400001 x", "x 1", "-1 x", "10", "10 \\q", "10 \\x4", "10 \\", "10 \\cx"})
        EXPECT_TRUE(parse_pipe_script(row).error.starts_with("row 1 ")) << row;
}

}  // namespace
}  // namespace fxsline
