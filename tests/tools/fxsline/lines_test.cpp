// The lines without FUSE: speech, queues, counters, events, the LED's timeline, scripts.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <numbers>
#include <random>

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

TEST(SimulatedLine, SpeechStartsWithItsDeviceOrTheClockAfterItsDelay) {
    for (auto const [from_clock_start, delay_ms, opened_at, first_word_at] :
         {std::array{0U, 0U, 5U, 5U}, {0, 20, 5, 7}, {0, 21, 0, 3}, {1, 0, 5, 0}, {1, 90, 5, 9}}) {
        simulated_line line({.says = speech::recording({1000}, false, "test"),
                             .from_clock_start = from_clock_start != 0,
                             .delay_ms = delay_ms});
        std::int16_t word = 0;
        line.tap_said([&](block const& said) { word = said[0]; });
        for (unsigned tick = 0; tick < 12; tick++) {
            if (tick == opened_at)
                line.open_device();
            EXPECT_EQ(line.tick().speech_ended, tick == first_word_at);
            EXPECT_EQ(word == 1000, tick == first_word_at) << tick << " " << delay_ms;
        }
    }
}

/// Underruns: audio that had been flowing into an open device stops, once for each gap, never after a clear.
TEST(SimulatedLine, UnderrunIsTheEndOfAFlow) {
    simulated_line line({});
    line.open_device();
    std::string seen;
    for (char const step : std::string("twtttwtctwtott")) {  // tick, write one block and a half, clear, close
        switch (step) {
            case 'w': line.write(counting(120)); break;
            case 'c': EXPECT_EQ(line.clear_tx(), 40U); break;
            case 'o': line.close_device(); break;
            default: seen += line.tick().underrun ? 'U' : '-';
        }
    }
    EXPECT_EQ(seen, "--U------");
    EXPECT_EQ(line.counters().underruns, 1U);
}

/// Random operations against two plain queues.
TEST(SimulatedLine, AgreesWithAModelOverRandomOperations) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    simulated_line line({.says = speech::recording(counting(30000), true, ""),
                         .from_clock_start = true,
                         .backlog_blocks = 3,
                         .play_queue_blocks = 2});
    samples heard, heard_model, backlog, queue;
    line.tap_heard([&](block const& b) { heard.insert(heard.end(), b.begin(), b.end()); });
    unsigned opens = 0;
    uint64_t spoken = 0, overruns = 0;
    bool losing = false;  // speech, since the last read or close
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
        } else {
            queue.resize(std::max<size_t>(queue.size(), 80));  // with silence
            std::ranges::copy(take(queue, 80), std::back_inserter(heard_model));
            for (int i = 0; i < 80; i++, spoken++)
                if (opens > 0)
                    backlog.push_back(static_cast<int16_t>(spoken % 30000 + 1));
            bool const overrun = backlog.size() > 240;
            ASSERT_EQ(line.tick().overrun_began, overrun && !losing);
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
}

TEST(Speech, ToneHasItsFrequenciesAndLevelForAMinute) {
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

TEST(Speech, CommandsAreTakenOrRefusedWithAReason) {
    temporary_directory const directory;
    write_wav(directory.path("stereo"), 8000, 2, {0.5F, 0.25F, -0.75F, -0.25F});
    write_wav(directory.path("wide"), 16000, 1, {0});
    write_wav(directory.path("empty"), 8000, 1, {});
    ASSERT_EQ(mkfifo(directory.path("pipe").c_str(), 0600), 0);
    for (auto const& [command, error] : {std::pair{"silence", ""},
                                         {"tone 3900+697.5 -90", ""},
                                         {"loop stereo", ""},
                                         {"silence 1", "not a speech command"},
                                         {"wav", "not a speech command"},
                                         {"tone 440 -20 x", "frequency and level"},
                                         {"tone 99.9 -20", "100 to 3900"},
                                         {"tone 440+ -20", "100 to 3900"},
                                         {"tone nan -20", "100 to 3900"},
                                         {"tone 440 1", "-90 to 0"},
                                         {"tone 440 -20dB", "-90 to 0"},
                                         {"wav wide", "16000 samples a second"},
                                         {"wav empty", "no samples"},
                                         {"wav pipe", "can't open"}}) {
        std::string full = command;
        if (full.starts_with("wav ") || full.starts_with("loop "))
            full.insert(full.find(' ') + 1, directory.path(""));
        auto const parsed = parse_speech(full);
        ASSERT_EQ(parsed.value.has_value(), *error == '\0') << command << ": " << parsed.error;
        EXPECT_NE(parsed.error.find(error), std::string::npos) << parsed.error;
        EXPECT_TRUE(!parsed.value || parsed.value->describe() == full) << parsed.value->describe();
    }
    block out;
    load_speech(directory.path("stereo"), true).value->next(out);
    EXPECT_EQ(samples(out.begin(), out.begin() + 3), (samples{12288, -16384, 12288}));
}

TEST(LineBank, RequestsAnswerAndReport) {
    std::string log;
    line_bank bank({.base_answers = {{3, 17}, {4, -EIO}}},
                   [&](line_event const& event) { log += event_text(event).substr(8) + "\n"; });
    bank.line(1).write(counting(100));
    for (auto const& [number, result] : {std::pair{0x20003003U, 17},
                                         {0x20003004U, -EIO},
                                         {0x20003fffU, 0},
                                         {0x20003005U, 0},
                                         {0x20003006U, 0},
                                         {0x20003007U, 0},
                                         {0x20004003U, -ENOTTY},
                                         {0x30003003U, -ENOTTY}}) {
        EXPECT_EQ(bank.request(1, number), result) << std::hex << number;
        EXPECT_EQ(bank.led(), number == 0x20003006);
    }
    EXPECT_FALSE(bank.say(2, "wav \xff"));
    bank.report_link(event_kind::driver_line, "off-hook 1\r\n");
    EXPECT_EQ(log, R"( ms  line 1  base command 3, answer 17
 ms  line 1  base command 4, answer -5
 ms  line 1  base command 4095, answer 0
 ms  line 1  transmit clear, samples discarded: 100
 ms  line 1  call LED on
 ms  line 1  call LED off
 ms  line 2  can't say: can't open the file )"
                   "\xff\n"
                   R"( ms  driver  says "off-hook 1\x0d\x0a")"
                   "\n");
}

TEST(LedTimeline, DrawsFlashesThatComeATickEarlyOrLate) {
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

TEST(PipeScript, RowsBecomeBytesOrAreRefused) {
    auto const parsed =
        parse_pipe_script("20 off-hook 1\n# no\n\n10 A\\r\\nB\\n\\c\n86400000  \\\\\\x41\\x00");
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
