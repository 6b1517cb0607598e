#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/e2e/media_process.h"
#include "tests/support/signals.h"
#include "tests/tools/child.h"
#include "tools/fxsheard/comparison.h"

inline void write_wav(std::string const& path, signals::samples const& pcm) {
    SF_INFO form{};
    form.samplerate = 8000;
    form.channels = 1;
    form.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &form);
    sf_write_short(file, pcm.data(), static_cast<sf_count_t>(pcm.size()));
    sf_close(file);
}

/// Simulated lines, the media process and fxsphone, all as programs.
class device {
public:
    /// Rows of the dial plan, tables of the configuration, keys of both lines, and an extension of the process, all
    /// beside what every test needs.
    explicit device(std::string const& more_plan = {}, std::string const& tables = {}, std::string const& keys = {},
                    std::uint16_t port = free_port(), std::string const& extension = {})
        : folder(testing::TempDir() + "phone-" + std::to_string(free_port())),
          sip_port(port),
          process_port(free_port()),
          extensions(extension),
          lines((prepare(), lines_arguments())),
          serving(lines.wait_for_text("serving")),
          process(std::make_unique<child>(process_arguments())),
          phone(
              (configure(more_plan, tables, keys), std::vector<std::string>{FXSPHONE, "-v", folder + "/phone.toml"})) {
        EXPECT_TRUE(serving);
        EXPECT_TRUE(phone.wait_for_text("the media process answers"));
    }
    ~device() {
        phone.end(SIGTERM);
        process->end(SIGKILL);
        lines.end(SIGTERM);
        std::filesystem::remove_all(folder);
    }

    void driver_says(std::string const& word) {
        std::ofstream(folder + "/lines/driver.say") << word << "\r\n";
        EXPECT_TRUE(lines.wait_for_text("says \"" + word));
        usleep(100'000);  // two lines in one read of the process would hold the second up
    }
    void dial(int line, std::string const& keys) {
        for (char const key : keys)
            driver_says("key " + std::to_string(line) + " " + key);
    }
    void restart_process() {
        process->end(SIGKILL);
        process = std::make_unique<child>(process_arguments());
    }
    void flash(int line) {
        driver_says("on-hook " + std::to_string(line));
        driver_says("off-hook " + std::to_string(line));
    }
    /// Lets both say something, and waits until it is said.
    void both_speak() { speak({"0", "1"}); }
    void speak(std::vector<std::string> const& who) {
        for (std::string const& n : who)
            std::ofstream(folder + "/lines/line" + n + ".say") << "wav " << folder << "/say" << n << ".wav";
        for (std::string const& n : who)
            EXPECT_TRUE(lines.wait_for_text("line " + n + "  speech ended"));
        sleep(1);  // on its way
    }
    /// The telephone of line `from` is off-hook and hears dial tone.
    void call(int from, int to) {
        dial(from, "10" + std::to_string(to));
        std::string const called = "line " + std::to_string(to) + "  ring device: ";
        ASSERT_TRUE(lines.wait_for_text(called + "ring"));
        driver_says("off-hook " + std::to_string(to));
        ASSERT_TRUE(lines.wait_for_text(called + "stop"));
        ASSERT_TRUE(phone.wait_for_text("\nACK sip:10" + std::to_string(to)));
    }
    /// Line 0 talks to line 2, that to line 1 is on hold.
    void call_both() {
        driver_says("off-hook 0");
        call(0, 1);
        flash(0);
        call(0, 2);
    }
    /// Waits until the line hears about this level, of the last second.
    bool hears(int line, double lowest_dbfs, double highest_dbfs) {
        for (int tries = 0; tries < 600; tries++, usleep(50'000)) {
            std::ifstream stats(folder + "/lines/line" + std::to_string(line) + ".stats");
            std::string const name = "heard_level_dbfs ";
            for (std::string row; std::getline(stats, row);)
                if (row.starts_with(name) && std::stod(row.substr(name.size())) >= lowest_dbfs &&
                    std::stod(row.substr(name.size())) <= highest_dbfs)
                    return true;
        }
        return false;
    }
    /// What the call LED has done so far, at last as a drawing: # is 50 ms of light.
    std::string led() const {
        std::ifstream in(folder + "/lines/led");
        return {std::istreambuf_iterator<char>(in), {}};
    }
    bool led_will_show(std::string const& pattern) const {
        for (int tries = 0; tries < 600 && led().find(pattern) == std::string::npos; tries++)
            usleep(50'000);
        return led().find(pattern) != std::string::npos;
    }
    /// What `fxsphone --status` prints.
    nlohmann::json status() const {
        child asked({FXSPHONE, "--status", folder + "/phone.toml"});
        EXPECT_EQ(asked.wait(), 0) << asked.err;
        return nlohmann::json::parse(asked.out, nullptr, false);
    }
    std::string folder;
    std::uint16_t sip_port, process_port;
    std::string extensions;
    child lines;
    bool serving;
    std::unique_ptr<child> process;
    child phone;

private:
    void prepare() {
        std::filesystem::create_directories(folder + "/lines");
        write_wav(folder + "/say0.wav", signals::speech_like(3 * 8000, 6000, 1));
        write_wav(folder + "/say1.wav", signals::speech_like(3 * 8000, 6000, 2));
        write_wav(folder + "/say2.wav", signals::speech_like(3 * 8000, 6000, 3));
    }
    std::vector<std::string> process_arguments() const {
        std::vector<std::string> all{
            FXSMEDIA_BINARY,       "--debug", "--log",        "1", "--port", std::to_string(process_port), "--tdm",
            folder + "/lines/sdt", "--pipe",  folder + "/fxs"};
        if (!extensions.empty())
            all.insert(all.end(), {"--extensions", extensions});
        return all;
    }
    std::vector<std::string> lines_arguments() const {
        std::vector<std::string> all{FXSLINE, folder + "/lines", "--pipe", folder + "/fxs", "--ring", folder + "/ring"};
        for (std::string const n : {"0", "1", "2"}) {
            for (std::string const& one : {"--said " + n + "=" + folder + "/said" + n + ".wav",
                                           "--hear " + n + "=" + folder + "/heard" + n + ".wav"}) {
                all.push_back(one.substr(0, one.find(' ')));
                all.push_back(one.substr(one.find(' ') + 1));
            }
        }
        return all;
    }
    void configure(std::string const& more_plan, std::string const& tables, std::string const& keys) const {
        std::ofstream(folder + "/phone.toml")
            << "[process]\nport = " << process_port << "\n[sip]\nport = " << sip_port
            << "\nip6 = \"::1\"\ninstance = \"f81d4fae-7dec-11d0-a765-00a0c91e6bf6\"\n[status]\nsocket = \"" << folder
            << "/status\"\n[driver]\nring = \"" << folder
            << "/ring\"\n[dial]\nplan = [{ keys = \"10x\", call = \"sip:{}@127.0.0.1:" << sip_port << "\" },\n"
            << more_plan << "]\n"
            << tables << "[[line]]\nnumber = 0\nuser = \"100\"\n"
            << keys << "[[line]]\nnumber = 1\nuser = \"101\"\nname = \"Bell\"\n"
            << keys << "[[line]]\nnumber = 2\nuser = \"102\"\n";
    }
};

/// To be asked when the recordings are complete. Pieces of half a second are compared, each with a delay of its own, so
/// that a slip of the simulated lines on a busy machine costs a piece and not the comparison.
inline void expect_heard(device const& where, int speaker, int listener) {
    samples const said = read_wav(where.folder + "/said" + std::to_string(speaker) + ".wav");
    samples const heard = read_wav(where.folder + "/heard" + std::to_string(listener) + ".wav");
    constexpr std::size_t piece_samples = 4000;
    int pieces = 0, alike = 0;
    for (std::size_t at = 0; at + piece_samples <= said.size(); at += piece_samples) {
        samples piece(said.size());
        std::copy_n(said.begin() + static_cast<std::ptrdiff_t>(at), piece_samples,
                    piece.begin() + static_cast<std::ptrdiff_t>(at));
        if (std::ranges::count_if(piece, [](int s) { return std::abs(s) > 200; }) < 1000)
            continue;  // hardly anything is said in it
        pieces++;
        alike += compare(piece, heard, 500).similarity > 0.5;
    }
    EXPECT_GT(pieces, 0) << "line " << speaker << " said nothing";
    EXPECT_GE(3 * alike, 2 * pieces) << "line " << speaker << " to line " << listener << ": " << alike << " of "
                                     << pieces;
}

/// Ends what runs; then each of the listeners has heard what its speaker said.
inline void expect_end_and_heard(device& here, std::vector<std::pair<int, int>> const& speakers_and_listeners) {
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    for (auto const& [speaker, listener] : speakers_and_listeners)
        expect_heard(here, speaker, listener);
}

/// SIPp, an independent agent, playing one of its own scenarios, or a file of scenarios/, for one call.
inline std::vector<std::string> sipp(std::string const& scenario, std::uint16_t port, std::vector<std::string> more) {
    bool const is_file = scenario.ends_with(".xml");
    std::vector<std::string> all{SIPP,
                                 is_file ? "-sf" : "-sn",
                                 (is_file ? SCENARIOS "/" : "") + scenario,
                                 "-i",
                                 "127.0.0.1",
                                 "-p",
                                 std::to_string(port),
                                 "-mp",
                                 std::to_string(free_port() & ~1),
                                 "-m",
                                 "1",
                                 "-nostdin",
                                 "-timeout",
                                 "40"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}
