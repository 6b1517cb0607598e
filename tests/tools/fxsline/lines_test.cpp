// The lines without FUSE: speech, queues, counters, events, the LED's timeline, scripts.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <deque>
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
    struct {
        bool from_clock_start;
        unsigned delay_ms, opened_before_tick, first_word_at_tick;
    } const cases[] = {
        {false, 0, 5, 5}, {false, 20, 5, 7}, {false, 21, 0, 3}, {true, 0, 5, 0}, {true, 90, 5, 9}};
    for (auto const& c : cases) {
        simulated_line line({.says = speech::recording({1000}, false, "test"),
                             .from_clock_start = c.from_clock_start,
                             .delay_ms = c.delay_ms});
        unsigned tick = 0;
        unsigned first_word_at = 99;
        line.tap_said([&](block const& said) { first_word_at = said[0] == 1000 ? tick : first_word_at; });
        for (; tick < 12; tick++) {
            if (tick == c.opened_before_tick)
                line.open_device();
            EXPECT_EQ(line.tick().speech_ended, tick == c.first_word_at_tick);
        }
        EXPECT_EQ(first_word_at, c.first_word_at_tick) << c.from_clock_start << c.delay_ms;
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

/// Random operations against two plain queues and two lists of samples.
TEST(SimulatedLine, AgreesWithAModelOverRandomOperations) {
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    simulated_line line({.says = speech::recording(counting(30000), true, ""),
                         .from_clock_start = true,
                         .backlog_blocks = 3,
                         .play_queue_blocks = 2});
    samples heard, heard_model;
    line.tap_heard([&](block const& b) { heard.insert(heard.end(), b.begin(), b.end()); });
    std::deque<int16_t> backlog, queue;
    unsigned opens = 0;
    size_t spoken = 0;
    uint64_t overruns = 0;
    bool losing = false;  // speech, since the last read or close
    for (int step = 0; step < 20000; step++) {
        switch (random() % 8) {
            case 0: EXPECT_EQ(line.open_device(), opens++ == 0); break;
            case 1:
                if (opens == 0)
                    break;
                EXPECT_EQ(line.close_device(), --opens == 0);
                if (opens == 0) {
                    backlog.clear();
                    losing = false;
                }
                break;
            case 2: {
                samples out(random() % 300);
                auto const end = backlog.begin() + std::min(std::ssize(out), std::ssize(backlog));
                out.resize(line.read(out));
                ASSERT_EQ(out, samples(backlog.begin(), end));
                backlog.erase(backlog.begin(), end);
                losing = false;
                break;
            }
            case 3: {
                samples const in = counting(random() % 200, static_cast<int16_t>(random()));
                auto const taken = std::min(std::ssize(in), 160 - std::ssize(queue));
                ASSERT_EQ(static_cast<long>(line.write(in)), taken);
                queue.insert(queue.end(), in.begin(), in.begin() + taken);
                break;
            }
            case 4:
                ASSERT_EQ(line.clear_tx(), queue.size());
                queue.clear();
                break;
            default:
                queue.resize(std::max<size_t>(queue.size(), 80));  // with silence
                heard_model.insert(heard_model.end(), queue.begin(), queue.begin() + 80);
                queue.erase(queue.begin(), queue.begin() + 80);
                for (int i = 0; i < 80; i++, spoken++)
                    if (opens > 0)
                        backlog.push_back(static_cast<int16_t>(spoken % 30000 + 1));
                bool const overrun = backlog.size() > 240;
                ASSERT_EQ(line.tick().overrun_began, overrun && !losing);
                overruns += overrun;
                losing |= overrun;
                backlog.erase(backlog.begin(), backlog.end() - std::min<long>(std::ssize(backlog), 240));
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
    write_wav(directory.path("stereo float"), 8000, 2, {0.5F, 0.25F, -0.75F, -0.25F});
    write_wav(directory.path("wide"), 16000, 1, {0});
    write_wav(directory.path("empty"), 8000, 1, {});
    ASSERT_EQ(mkfifo(directory.path("pipe").c_str(), 0600), 0);
    std::pair<std::string, std::vector<std::string>> const cases[] = {
        {"", {"silence", "tone 3900+697.5 -90", "loop " + directory.path("stereo float")}},  // taken
        {"not a speech command", {"silence 1", "wav"}},
        {"frequency and level", {"tone 440 -20 x"}},
        {"100 to 3900", {"tone 99.9 -20", "tone 440+ -20", "tone nan -20"}},
        {"-90 to 0", {"tone 440 1", "tone 440 -20dB"}},
        {"16000 samples a second", {"wav " + directory.path("wide")}},
        {"no samples", {"wav " + directory.path("empty")}},
        {"can't open", {"wav " + directory.path("pipe")}}};
    for (auto const& [error, commands] : cases)
        for (std::string const& command : commands) {
            auto const parsed = parse_speech(command);
            ASSERT_EQ(parsed.value.has_value(), error.empty()) << command << ": " << parsed.error;
            EXPECT_NE(parsed.error.find(error), std::string::npos) << parsed.error;
            EXPECT_EQ(error.empty() ? parsed.value->describe() : command, command);
        }
    block out;
    load_speech(directory.path("stereo float"), true).value->next(out);
    EXPECT_EQ(samples(out.begin(), out.begin() + 3), (samples{12288, -16384, 12288}));
}

TEST(LineBank, RequestsAnswerAndReport) {
    std::string log, json;
    line_bank bank({.base_answers = {{3, 17}, {4, -EIO}}}, [&](line_event const& event) {
        log += event_text(event).substr(2) + "\n";
        json += event_json(event);
    });
    std::pair<uint32_t, int> const requests[] = {
        {0x20003003, 17}, {0x20003004, -EIO},    {0x20003fff, 0},       {0x20003005, 0},      {0x20003006, 0},
        {0x20003007, 0},  {0x20004003, -ENOTTY}, {0x30003003, -ENOTTY}, {0x20007003, -ENOTTY}};
    bank.tick();
    bank.line(1).write(counting(100));
    for (auto const& [number, result] : requests) {
        EXPECT_EQ(bank.request(1, number), result) << std::hex << number;
        EXPECT_EQ(bank.led(), number == 0x20003006);
    }
    EXPECT_FALSE(bank.say(2, "wav \xff\""));
    for (char const* const part :
         {R"({"time_ms":10,"line":1,"event":"base_command","number":4,"answer":-5})",
          "\"event\":\"say_refused\",\"text\":\"can't open the file \xEF\xBF\xBD\\\"\"}"})
        EXPECT_NE(json.find(part), std::string::npos) << json;
    bank.report_link(event_kind::driver_line, "off-hook 1\r\n");
    EXPECT_EQ(log, R"(    10 ms  line 1  base command 3, answer 17
    10 ms  line 1  base command 4, answer -5
    10 ms  line 1  base command 4095, answer 0
    10 ms  line 1  transmit clear, samples discarded: 100
    10 ms  line 1  call LED on
    10 ms  line 1  call LED off
    10 ms  line 2  can't say: can't open the file )"
                   "\xff\"\n"
                   "    10 ms  driver  says \"off-hook 1\\x0d\\x0a\"\n");
}

TEST(LedTimeline, DrawsFlashesThatComeATickEarlyOrLate) {
    led_timeline led;
    EXPECT_EQ(led.text(1000), "");
    for (uint64_t const on_ms : {120U, 220U, 330U, 1000U}) {
        led.add({on_ms, true});
        led.add({on_ms + (on_ms == 220 ? 40 : 50), false});
    }
    led.add({1100, false});  // again
    EXPECT_EQ(led.drawing(124), "");
    EXPECT_EQ(led.drawing(1169), "#.#.#.............#.");
    EXPECT_EQ(led.text(270),
              "120 on\n170 off\n220 on\n260 off\n330 on\n380 off\n1000 on\n1050 off\n1100 off\n#.#\n");
    led.add({2000, true});
    EXPECT_EQ(led.drawing(61500), std::string(10, '.') + std::string(1190, '#')) << "the last minute";
    for (uint64_t i = 0; i < 10000; i++)
        led.add({3000 + i, true});
    EXPECT_EQ(led.commands().size(), 10000U);
    EXPECT_EQ(led.commands().front().time_ms, 3000U);
}

TEST(PipeScript, RowsBecomeBytesOrAreRefused) {
    using namespace std::string_literals;
    std::pair<std::string, std::string> const cases[] = {
        // sent: "TIME:BYTES" each
        {"20 off-hook 1\n# no\n\n10 A\\r\\nB\\n\\c", "20:off-hook 1\r\n10:A\r\nB\n"},
        {"0 \r\n", "0:\r\n"},
        {"86400000  \\\\\\x41\\x00", "86400000: \\A\0\r\n"s}};
    for (auto const& [rows, expected] : cases) {
        auto const parsed = parse_pipe_script(rows);
        std::string sent;
        for (scripted_text const& text : parsed.value.value_or(pipe_script{}))
            sent += std::to_string(text.time_ms) + ":" + text.bytes;
        EXPECT_EQ(sent, expected) << rows << parsed.error;
    }
    for (char const* row : {"86400001 x", "x 1", "-1 x", "10", "10 \\q", "10 \\x4", "10 \\", "10 \\cx"}) {
        auto const parsed = parse_pipe_script(row);
        EXPECT_TRUE(!parsed.value && parsed.error.starts_with("row 1 ")) << row << ": " << parsed.error;
    }
}

}  // namespace
}  // namespace fxsline
