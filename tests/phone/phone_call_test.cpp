#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/socket.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "tests/e2e/media_process.h"
#include "tests/support/signals.h"
#include "tests/tools/child.h"
#include "tools/fxsheard/comparison.h"

namespace {

void write_wav(std::string const& path, signals::samples const& pcm) {
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
    explicit device(std::string const& more_plan = {})
        : folder(testing::TempDir() + "phone-" + std::to_string(free_port())),
          sip_port(free_port()),
          process_port(free_port()),
          lines((prepare(), lines_arguments())),
          serving(lines.wait_for_text("serving")),
          process(std::make_unique<child>(process_arguments())),
          phone((configure(more_plan), std::vector<std::string>{FXSPHONE, "-v", folder + "/phone.toml"})) {
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
    void both_speak() {
        for (std::string const n : {"0", "1"})
            std::ofstream(folder + "/lines/line" + n + ".say") << "wav " << folder << "/say" << n << ".wav";
        EXPECT_TRUE(lines.wait_for_text("line 0  speech ended"));
        EXPECT_TRUE(lines.wait_for_text("line 1  speech ended"));
        sleep(1);  // on its way
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
    std::string folder;
    std::uint16_t sip_port, process_port;
    child lines;
    bool serving;
    std::unique_ptr<child> process;
    child phone;

private:
    void prepare() {
        std::filesystem::create_directories(folder + "/lines");
        write_wav(folder + "/say0.wav", signals::speech_like(3 * 8000, 6000, 1));
        write_wav(folder + "/say1.wav", signals::speech_like(3 * 8000, 6000, 2));
    }
    std::vector<std::string> process_arguments() const {
        return {FXSMEDIA_BINARY,       "--debug", "--log",        "1", "--port", std::to_string(process_port), "--tdm",
                folder + "/lines/sdt", "--pipe",  folder + "/fxs"};
    }
    std::vector<std::string> lines_arguments() const {
        std::vector<std::string> all{FXSLINE, folder + "/lines", "--pipe", folder + "/fxs", "--ring", folder + "/ring"};
        for (std::string const n : {"0", "1"}) {
            for (std::string const& one : {"--said " + n + "=" + folder + "/said" + n + ".wav",
                                           "--hear " + n + "=" + folder + "/heard" + n + ".wav"}) {
                all.push_back(one.substr(0, one.find(' ')));
                all.push_back(one.substr(one.find(' ') + 1));
            }
        }
        return all;
    }
    void configure(std::string const& more_plan) const {
        std::ofstream(folder + "/phone.toml")
            << "[process]\nport = " << process_port << "\n[sip]\nport = " << sip_port << "\n[driver]\nring = \""
            << folder << "/ring\"\n[dial]\nplan = [{ keys = \"10x\", call = \"sip:{}@127.0.0.1:" << sip_port
            << "\" },\n"
            << more_plan
            << "]\n[[line]]\nnumber = 0\nuser = \"100\"\n[[line]]\nnumber = 1\nuser = \"101\"\nname = \"Bell\"\n";
    }
};

/// To be asked when the recordings are complete.
void expect_heard(device const& where, int speaker, int listener) {
    comparison const one = compare(read_wav(where.folder + "/said" + std::to_string(speaker) + ".wav"),
                                   read_wav(where.folder + "/heard" + std::to_string(listener) + ".wav"), 500);
    EXPECT_GT(one.similarity, 0.5) << "line " << speaker << " to line " << listener;
}

TEST(phone_call, connects_two_lines_of_the_device) {
    device here;
    here.driver_says("off-hook 0");
    EXPECT_TRUE(here.hears(0, -30, -10)) << "dial tone";
    here.dial(0, "101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: caller 100"));
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: stop"));
    here.both_speak();
    here.driver_says("on-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":1,\"direction\":\"in\""));
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":0,\"direction\":\"out\""));
    EXPECT_NE(here.phone.out.find("\"codec\":\"pcma\",\"sip_code\":200,\"ended_by\":\"far\""), std::string::npos)
        << here.phone.out;
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    expect_heard(here, 0, 1);
    expect_heard(here, 1, 0);
}

/// SIPp, an independent agent, playing one of its own scenarios for one call.
std::vector<std::string> sipp(std::string const& scenario, std::uint16_t port, std::vector<std::string> more) {
    std::vector<std::string> all{SIPP,
                                 "-sn",
                                 scenario,
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

TEST(phone_call, calls_an_independent_agent) {
    std::uint16_t const port = free_port();
    device here("{ keys = \"0.\", call = \"sip:{}@127.0.0.1:" + std::to_string(port) + "\" }");
    child agent(sipp("uas", port, {}));
    here.driver_says("off-hook 0");
    here.dial(0, "07#");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:"));
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;  // ends the call, too
    EXPECT_EQ(agent.wait(), 0) << agent.out << agent.err;
    EXPECT_NE(here.phone.out.find("\"codec\":\"pcmu\",\"sip_code\":200,\"ended_by\":\"telephone\""), std::string::npos);
}

TEST(phone_call, is_called_by_an_independent_agent) {
    device here;
    child agent(sipp("uac", free_port(), {"-s", "101", "-d", "500", "127.0.0.1:" + std::to_string(here.sip_port)}));
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    EXPECT_EQ(agent.wait(), 0) << agent.out << agent.err;
    EXPECT_TRUE(here.phone.wait_for_text("\"ended_by\":\"far\""));
    EXPECT_TRUE(here.hears(1, -40, -5)) << "busy tone";
}

TEST(phone_call, refuses_what_it_cannot_take_and_gives_up_in_time) {
    device here;
    child nobody(sipp("uac", free_port(), {"-s", "999", "127.0.0.1:" + std::to_string(here.sip_port)}));
    EXPECT_TRUE(here.phone.wait_for_text("SIP/2.0 404 Not Found"));
    here.driver_says("off-hook 1");
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    EXPECT_TRUE(here.phone.wait_for_text("SIP/2.0 486 Busy Here"));
    EXPECT_TRUE(here.phone.wait_for_text("\nACK sip:101"));
    here.driver_says("on-hook 1");
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"sip_code\":486,\"ended_by\":\"network\""));
}

TEST(phone_call, takes_a_call_back_and_holds_one) {
    device here;
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\nCANCEL sip:101"));
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: stop"));
    here.driver_says("off-hook 1");
    here.dial(1, "100");
    ASSERT_TRUE(here.lines.wait_for_text("line 0  ring device: caller 101 Bell"));
    here.driver_says("off-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:100"));
    // A hook flash of line 1: it hears dial tone, line 0 is on hold; the next one brings it back.
    here.flash(1);
    ASSERT_TRUE(here.phone.wait_for_text("a=sendonly"));
    ASSERT_TRUE(here.phone.wait_for_text("a=recvonly"));
    here.flash(1);
    here.both_speak();
    here.driver_says("on-hook 0");
    ASSERT_TRUE(here.phone.wait_for_text("\"line\":0,\"direction\":\"in\""));
    EXPECT_EQ(here.phone.end(SIGTERM), 0) << here.phone.err;
    EXPECT_EQ(here.lines.end(SIGTERM), 0);
    expect_heard(here, 0, 1);
    expect_heard(here, 1, 0);
}

TEST(phone_call, ends_calls_when_the_media_process_was_restarted) {
    device here;
    here.driver_says("off-hook 0");
    here.dial(0, "101");
    ASSERT_TRUE(here.lines.wait_for_text("line 1  ring device: ring"));
    here.driver_says("off-hook 1");
    ASSERT_TRUE(here.phone.wait_for_text("\nACK sip:101"));
    here.restart_process();
    ASSERT_TRUE(here.phone.wait_for_text("the media process was restarted"));
    EXPECT_TRUE(here.phone.wait_for_text("\nBYE sip:"));
    EXPECT_TRUE(here.phone.wait_for_text("\"ended_by\":\"media\""));
    EXPECT_TRUE(here.hears(0, -30, -10)) << "dial tone";
    here.dial(1, "100");
    EXPECT_TRUE(here.phone.wait_for_text("SIP/2.0 486 Busy Here")) << "a new call";
}

}  // namespace
