// The lines without FUSE: speech, queues, counters, recordings, events.
#include <gtest/gtest.h>
#include <poll.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <deque>
#include <fstream>
#include <iterator>
#include <numbers>
#include <numeric>
#include <random>

#include "tests/tools/fxsline/temporary_directory.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/tick_clock.h"
#include "tools/fxsline/wav_recorder.h"

namespace fxsline {
namespace {

using samples = std::vector<int16_t>;
using namespace std::string_literals;

samples counting(size_t count, int16_t first = 1) {
    samples values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}

line_config says(samples what) {
    return {.says = speech::recording(std::move(what), false, "test")};
}

samples read_all(simulated_line& line) {
    samples out(line.samples_to_read());
    line.read(out);
    return out;
}

void write_wav(const std::string& path, int rate, int channels, int format,
               const std::vector<float>& values) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    sf_write_float(file, values.data(), static_cast<sf_count_t>(values.size()));
    sf_close(file);
}

samples read_wav(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    EXPECT_EQ(info.samplerate, 8000);
    EXPECT_EQ(info.channels, 1);
    samples out(static_cast<size_t>(info.frames));
    sf_read_short(file, out.data(), info.frames);
    sf_close(file);
    return out;
}

TEST(SimulatedLine, BacklogKeepsTheNewestEightBlocks) {
    for (size_t ticks : {1U, 7U, 8U, 9U, 30U}) {
        simulated_line line(says(counting(30 * 80)));
        line.open_device();
        for (size_t i = 0; i < ticks; i++) {
            EXPECT_EQ(line.tick().overrun_began, i == 8) << i;
        }
        const size_t kept = std::min<size_t>(ticks, 8);
        EXPECT_EQ(line.counters().overruns, ticks - kept);
        EXPECT_EQ(read_all(line), counting(kept * 80, static_cast<int16_t>((ticks - kept) * 80 + 1)))
            << ticks;
        EXPECT_FALSE(line.readable());
    }
}

TEST(SimulatedLine, SpeechStartsWithItsDeviceOrTheClockAfterItsDelay) {
    struct {
        bool from_clock_start;
        unsigned delay_ms, opened_before_tick, first_word_at_tick;
    } const cases[] = {{false, 0, 0, 0}, {false, 0, 5, 5}, {false, 20, 5, 7}, {false, 21, 0, 3},
                       {true, 0, 5, 0},  {true, 30, 5, 3}, {true, 90, 5, 9}};
    for (const auto& c : cases) {
        line_config config = says({1000});
        config.from_clock_start = c.from_clock_start;
        config.delay_ms = c.delay_ms;
        simulated_line line(config);
        unsigned tick = 0;
        unsigned first_word_at = 99;
        line.tap_said([&](const block& said) { first_word_at = said[0] == 1000 ? tick : first_word_at; });
        for (; tick < 12; tick++) {
            if (tick == c.opened_before_tick) {
                line.open_device();
            }
            EXPECT_EQ(line.tick().speech_ended, tick == c.first_word_at_tick);
        }
        EXPECT_EQ(first_word_at, c.first_word_at_tick) << c.from_clock_start << c.delay_ms;
    }
}

// Underruns: audio that had been flowing into an open device stops, once for each gap, never after a clear.
TEST(SimulatedLine, UnderrunIsTheEndOfAFlow) {
    simulated_line line({});
    line.open_device();
    const samples one_and_a_half = counting(120);
    const auto gap = [&line] { return line.tick().underrun; };
    EXPECT_FALSE(gap());  // nothing was ever written
    line.write(one_and_a_half);
    EXPECT_FALSE(gap());
    EXPECT_TRUE(gap());  // half a block
    EXPECT_FALSE(gap());
    line.write(one_and_a_half);
    EXPECT_FALSE(gap());
    EXPECT_EQ(line.clear_tx(), 40U);
    EXPECT_FALSE(gap());
    line.write(one_and_a_half);
    line.close_device();
    EXPECT_FALSE(gap());
    EXPECT_FALSE(gap());
    EXPECT_EQ(line.counters().underruns, 1U);
}

// Random operations against two plain queues and two lists of samples.
TEST(SimulatedLine, AgreesWithAModelOverRandomOperations) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    simulated_line line({.says = speech::recording(counting(30000), true, ""),
                         .from_clock_start = true,
                         .backlog_blocks = 3,
                         .play_queue_blocks = 2});
    samples heard, heard_model;
    line.tap_heard([&](const block& b) { heard.insert(heard.end(), b.begin(), b.end()); });
    std::deque<int16_t> backlog, queue;
    unsigned opens = 0;
    size_t spoken = 0;
    uint64_t overruns = 0;
    for (int step = 0; step < 20000; step++) {
        switch (random() % 7) {
            case 0: EXPECT_EQ(line.open_device(), opens++ == 0); break;
            case 1:
                if (opens > 0) {
                    EXPECT_EQ(line.close_device(), --opens == 0);
                    opens == 0 ? backlog.clear() : void();
                }
                break;
            case 2: {
                samples out(random() % 300), model;
                out.resize(line.read(out));
                for (; model.size() < out.size() && !backlog.empty(); backlog.pop_front()) {
                    model.push_back(backlog.front());
                }
                ASSERT_EQ(out, model);
                break;
            }
            case 3: {
                const samples in = counting(random() % 200, static_cast<int16_t>(random()));
                const size_t taken = std::min(in.size(), 160 - queue.size());
                ASSERT_EQ(line.write(in), taken);
                queue.insert(queue.end(), in.begin(), in.begin() + static_cast<long>(taken));
                break;
            }
            case 4:
                ASSERT_EQ(line.clear_tx(), queue.size());
                queue.clear();
                break;
            default:
                line.tick();
                for (int i = 0; i < 80; i++) {
                    heard_model.push_back(queue.empty() ? int16_t{0} : queue.front());
                    queue.empty() ? void() : queue.pop_front();
                    opens > 0 ? backlog.push_back(static_cast<int16_t>(spoken % 30000 + 1)) : void();
                    spoken++;
                }
                overruns += backlog.size() > 240;
                backlog.erase(backlog.begin(),
                              backlog.end() - static_cast<long>(std::min<size_t>(backlog.size(), 240)));
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
    for (int tick = 0; tick < 6000; tick++) {
        block said;
        tone.next(said);
        meter.add(said);
        for (int i = 0; i < 80; i++) {
            const double angle = 2 * std::numbers::pi * (tick * 80 + i) / 8000;
            ASSERT_NEAR(said[static_cast<size_t>(i)],
                        3276.7 * (std::sin(440.5 * angle) + std::sin(1000 * angle)), 0.51)
                << tick;
        }
    }
    EXPECT_NEAR(meter.dbfs(), -16.99, 0.02);  // two of -20
    EXPECT_NEAR(meter.peak(), 6553, 5);
    for (int i = 0; i < 100; i++) {
        meter.add(block{});
    }
    EXPECT_EQ(meter.dbfs(), level_meter::silence_dbfs);
}

TEST(Speech, CommandsAreTakenOrRefusedWithAReason) {
    const temporary_directory directory;
    write_wav(directory.path("stereo float"), 8000, 2, SF_FORMAT_FLOAT, {0.5F, 0.25F, -0.75F, -0.25F});
    write_wav(directory.path("wide"), 16000, 1, SF_FORMAT_PCM_16, {0});
    write_wav(directory.path("empty"), 8000, 1, SF_FORMAT_PCM_16, {});
    ASSERT_EQ(mkfifo(directory.path("pipe").c_str(), 0600), 0);
    struct {
        std::string command, error;  // a part of it; empty: taken, and described as it was commanded
    } const cases[] = {{"silence", ""},
                       {"tone 100 -90", ""},
                       {"tone 3900+697.5 0", ""},
                       {"loop " + directory.path("stereo float"), ""},
                       {"", "not a speech command"},
                       {"silence 1", "not a speech command"},
                       {"wav", "not a speech command"},
                       {"tone 440", "frequency and level"},
                       {"tone 440 -20 x", "frequency and level"},
                       {"tone 99.9 -20", "100 to 3900"},
                       {"tone 440+ -20", "100 to 3900"},
                       {"tone nan -20", "100 to 3900"},
                       {"tone 440 1", "-90 to 0"},
                       {"tone 440 -20dB", "-90 to 0"},
                       {"wav " + directory.path("wide"), "16000 samples a second"},
                       {"wav " + directory.path("empty"), "no samples"},
                       {"wav " + directory.path("pipe"), "can't open"},
                       {"wav " + directory.path(""), "can't open"},
                       {"wav " + directory.path("missing"), "can't open"}};
    for (const auto& c : cases) {
        const auto parsed = parse_speech(c.command);
        ASSERT_EQ(parsed.value.has_value(), c.error.empty()) << c.command << ": " << parsed.error;
        EXPECT_NE(parsed.error.find(c.error), std::string::npos) << parsed.error;
        EXPECT_EQ(c.error.empty() ? parsed.value->describe() : c.command, c.command);
    }
    speech stereo = *load_speech(directory.path("stereo float"), true).value;
    block out;
    stereo.next(out);
    EXPECT_EQ(out[0], 12288);
    EXPECT_EQ(out[1], -16384);
    EXPECT_EQ(out[2], out[0]);
    EXPECT_EQ(out[79], out[1]);
}

TEST(WavRecorder, FileIsCompleteToTheLastSecondEvenBeforeTheEnd) {
    const temporary_directory directory;
    const std::string path = directory.path("heard.wav");
    const samples written = counting(8000 + 80, -4040);
    auto recorder = wav_recorder::create(path);
    ASSERT_TRUE(recorder.value) << recorder.error;
    for (size_t i = 0; i < written.size(); i += 80) {
        recorder.value->add(std::span(written).subspan(i, 80));
    }
    EXPECT_EQ(read_wav(path), counting(8000, -4040));
    std::ifstream header(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(header), {}).substr(36, 8), "data\x80\x3E\0\0"s);
    EXPECT_TRUE(recorder.value->finish());
    EXPECT_EQ(read_wav(path), written);
    speech again = *load_speech(path, false).value;
    for (size_t i = 0; i < written.size(); i += 80) {
        block out;
        again.next(out);
        EXPECT_TRUE(std::equal(out.begin(), out.end(), &written[i])) << i;
    }
    EXPECT_TRUE(again.ended());
    EXPECT_FALSE(wav_recorder::create(directory.path("none/heard.wav")).value);
    auto full = wav_recorder::create("/dev/full");
    if (full.value) {
        full.value->add(written);
        EXPECT_FALSE(full.value->finish());
    }
}

TEST(LineBank, RequestsAnswerAndReport) {
    std::string log;
    line_bank bank({.base_answers = {{3, 17}, {4, -EIO}}}, [&log](const line_event& event) {
        log += event_text(event) + "\n" + event_json(event) + "\n";
    });
    struct {
        uint32_t number;
        int result;
    } const requests[] = {{0x20003003, 17},      {0x20003004, -EIO},    {0x20003fff, 0},
                          {0x20003005, 0},       {0x20003006, 0},       {0x20003007, 0},
                          {0x5401, -ENOTTY},     {0x20004003, -ENOTTY}, {0x3003, -ENOTTY},
                          {0x30003003, -ENOTTY}, {0x20007003, -ENOTTY}};
    bank.tick();
    bank.open_device(1);
    bank.open_device(1);
    bank.line(1).write(counting(100));
    for (const auto& request : requests) {
        EXPECT_EQ(bank.request(1, request.number), request.result) << std::hex << request.number;
        EXPECT_EQ(bank.led(), request.number == 0x20003006);
    }
    bank.close_device(1);
    bank.close_device(1);
    EXPECT_FALSE(bank.say(2, "wav \xff\""));
    EXPECT_TRUE(bank.say(2, "tone 440 -20"));
    EXPECT_EQ(log, R"(      10 ms  line 1  device opened
{"time_ms":10,"line":1,"event":"device_opened"}
      10 ms  line 1  base command 3, answer 17
{"time_ms":10,"line":1,"event":"base_command","number":3,"answer":17}
      10 ms  line 1  base command 4, answer -5
{"time_ms":10,"line":1,"event":"base_command","number":4,"answer":-5}
      10 ms  line 1  base command 4095, answer 0
{"time_ms":10,"line":1,"event":"base_command","number":4095,"answer":0}
      10 ms  line 1  transmit clear, samples discarded: 100
{"time_ms":10,"line":1,"event":"tx_clear","number":100}
      10 ms  line 1  call LED on
{"time_ms":10,"line":1,"event":"led_on"}
      10 ms  line 1  call LED off
{"time_ms":10,"line":1,"event":"led_off"}
      10 ms  line 1  device closed
{"time_ms":10,"line":1,"event":"device_closed"}
      10 ms  line 2  can't say: can't open the file )"
                   "\xff\"\n"
                   R"({"time_ms":10,"line":2,"event":"say_refused","text":"can't open the file )"
                   "\xEF\xBF\xBD"
                   R"(\""}
      10 ms  line 2  says tone 440 -20
{"time_ms":10,"line":2,"event":"say","text":"tone 440 -20"}
)");
}

// Between two readings of the system's clock there are just so many whole periods.
TEST(TickClock, CountsEveryPeriodOnce) {
    using std::chrono::steady_clock;
    const auto before = steady_clock::now();
    tick_clock clock;
    const auto made = steady_clock::now();
    uint64_t ticks = 0;
    const auto elapsed_ticks = [](auto from, auto to) {
        return static_cast<uint64_t>((to - from) / std::chrono::milliseconds(10));
    };
    for (int i = 0; i < 5; i++) {
        pollfd wait{clock.fd(), POLLIN, 0};
        poll(&wait, 1, -1);
        poll(nullptr, 0, 15 * (i % 2));
        const auto asked = steady_clock::now();
        ticks += clock.due();
        EXPECT_GE(ticks + 1, elapsed_ticks(made, asked));
        EXPECT_LE(ticks, elapsed_ticks(before, steady_clock::now()));
    }
    EXPECT_GE(ticks, 5U);
}

}  // namespace
}  // namespace fxsline
