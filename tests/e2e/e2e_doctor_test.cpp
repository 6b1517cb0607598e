// `fxsctl doctor`: every fault is made with the real process and must get its verdict; healthy calls must get none.

#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/e2e/far_end.h"
#include "tests/e2e/media_process.h"
#include "tests/support/seed.h"
#include "tests/tools/fxsctl/run_fxsctl.h"

using namespace std::chrono_literals;

namespace {

std::string const key = "e1f97a0d3e018be0d64fa32c06de41390ec675ad498afeebb6960b3aabe6";

/// The process with four telephones in real time and a monitor, through which all commands go.
class scene {
public:
    explicit scene(std::vector<std::string> arguments = {}, int peak = 12000)
        : lines(speakers(30, peak, 20)), process(with_lines(std::move(arguments))) {
        EXPECT_TRUE(own_network) << "the doctor sees all that passes on the loopback interface";
        EXPECT_TRUE(watching.wait_for_text("other runs of fxsctl go through this one"));
    }
    ~scene() {
        ended = true;
        ticking.join();
    }

    outcome fxsctl(std::string const& words) const { return run_fxsctl("--timeout 20000 " + words, process.port); }
    void expect_done(std::string const& words) const {
        outcome const run = fxsctl(words);
        EXPECT_EQ(run.exit_code, 0) << words << ": " << run.err;
    }

    std::unique_ptr<telephones> lines;
    controlled_process process;
    child watching = start_fxsctl("--timeout 20000 monitor --log-level 4", process.port);

private:
    std::vector<std::string> with_lines(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"--tdm", lines->tdm_path()});
        return arguments;
    }

    std::atomic<bool> ended{false};
    std::thread ticking{[this] {
        fxsline::tick_clock clock;
        for (; !ended; std::this_thread::sleep_for(2ms))
            lines->mount().advance(clock.due());
    }};
};

/// Verdicts of a run, by call (-1: the process) and direction: the names of the causes, the first one first.
struct diagnosis {
    explicit diagnosis(outcome const& run) : code(run.exit_code), text(run.out + run.err) {
        for (std::string const& line : split(run.out, '\n')) {
            auto const verdict = nlohmann::json::parse(line);
            auto& causes = found[{verdict["call"].is_null() ? -1 : verdict["call"].get<int>(), verdict["direction"]}];
            for (auto const& cause : verdict["causes"])
                causes.push_back(cause["cause"]);
            all_ok = all_ok && verdict["state"] == "OK";
        }
    }
    std::string first(int call, std::string const& direction) const {
        auto const causes = found.find({call, direction});
        return causes == found.end() || causes->second.empty() ? "" : causes->second[0];
    }
    int code;
    std::string text;
    bool all_ok = true;
    std::map<std::pair<int, std::string>, std::vector<std::string>> found;
};

diagnosis examine(scene const& here, std::string const& options = "") {
    return diagnosis(here.fxsctl("--json doctor --seconds 5" + options));
}

/// Of calls that are in order. A machine that is busy elsewhere holds packets up and fills buffers, which the doctor
/// tells rightly: its cure is taken, and it is asked again.
diagnosis examine_healthy(scene const& here, std::vector<int> const& calls) {
    diagnosis found = examine(here);
    for (int again = 0; !found.all_ok && again < 2; again++) {
        for (int const call : calls)
            here.expect_done("refresh --call " + std::to_string(call));
        found = examine(here);
    }
    return found;
}

struct fault {
    char const* cause;  ///< first one of the verdict; empty: both directions are in order
    char const* direction;
    std::string settings;  ///< of `fxsctl media`; FAR is the far end's address
    far_behaviour far = {};
    bool on_line = true;
};

char const* const in = "network->phone";
char const* const out = "phone->network";
std::string const plain = "--codec pcma --rtp FAR --no-rtcp";
std::string const keyed = plain + " --srtp-rx-key " + key + " --srtp-tx-key " + key;
using sound = far_behaviour::sound;
using reports = far_behaviour::reports;

/// One after the other on the four lines; a scene for each four.
fault const faults[] = {
    {"", in, plain},
    {"payload-type-not-mapped", in, plain + " --map 8=pcma", {.payload_type = 0}},
    {"wrong-port", in, plain, {.port_offset = 40}},
    {"wrong-port", out, "--codec pcma --rtp 127.0.0.1:9 --no-rtcp"},

    {"wrong-family", out, "--codec pcma --rtp [::1]:9 --no-rtcp"},
    {"wrong-family", in, plain, {.ipv6 = true}},
    {"no-destination", out, "--codec pcma"},
    {"no-line", in, plain, {}, false},

    {"missing-receive-key", in, plain, {.says = sound::cipher, .payload_bytes = 170}},
    {"wrong-receive-key", in, keyed, {.says = sound::cipher, .payload_bytes = 170}},
    {"wrong-send-key", out, keyed, {.rtcp = reports::knows_no_stream}},
    {"missing-send-key", out, plain, {.says = sound::cipher, .payload_bytes = 170, .rtcp = reports::knows_no_stream}},

    {"ssrc-fight", in, plain, {.senders = 2}},
    {"stream-stopped", in, plain, {.stops_after_s = 0.4}},
    {"blocked-inbound", in, plain, {.sends = false, .rtcp = reports::claims_packets}},
    {"blocked-outbound", out, plain, {.rtcp = reports::knows_no_stream}},

    {"digital-silence", in, plain, {.says = sound::one_value}},
    {"level-too-low", in, plain, {.says = sound::faint}},
    {"clipped", in, plain, {.says = sound::loud}},
    {"other-law", in, plain, {.says = sound::other_law}},

    {"odd-packet-length", in, plain, {.payload_bytes = 120}},
    {"clock-drift", in, plain, {.clock_ppm = -3000}},
    {"buffer-at-ceiling", in, plain + " --xr voip-metrics", {.at_once = 16}},
    {"nothing-arrives", in, plain, {.sends = false}},
};

class doctor_four : public testing::TestWithParam<std::size_t> {};

TEST_P(doctor_four, finds_the_cause) {
    scene here({"--ipv4"});
    std::vector<std::unique_ptr<far_end>> far_ends;
    std::span<fault const> const made = std::span(faults).subspan(GetParam(), 4);
    for (std::size_t i = 0; i < made.size(); i++) {
        std::string const call = "--call " + std::to_string(i);
        outcome const opened = here.fxsctl("--json open " + call + " --call-id e2e-" + std::to_string(i));
        far_ends.push_back(std::make_unique<far_end>(made[i].far));
        std::string settings = made[i].settings;
        if (std::size_t const at = settings.find("FAR"); at != settings.npos)
            settings.replace(at, 3, far_ends.back()->address());
        here.expect_done("media " + call + " " + settings);
        if (made[i].on_line)
            here.expect_done("tdm " + call + " --line " + std::to_string(i));
        auto const ports = nlohmann::json::parse(opened.out);
        far_ends.back()->start(ports["rtp_port"], ports["rtcp_port"]);
    }
    std::this_thread::sleep_for(1s);
    diagnosis const found = examine(here);
    EXPECT_EQ(found.code, 1);
    for (std::size_t i = 0; i < made.size(); i++) {
        EXPECT_EQ(found.first(static_cast<int>(i), made[i].direction), made[i].cause) << found.text;
        if (made[i].cause[0] == '\0') {
            EXPECT_EQ(found.first(static_cast<int>(i), out), "") << found.text;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(faults, doctor_four, testing::Range(std::size_t{0}, std::size(faults), std::size_t{4}));

TEST(doctor_of_lines, finds_a_third_call_and_a_missing_device) {
    scene here;
    here.expect_done("call 0 1");
    here.expect_done("call 2 3 --lines 0,2");
    here.expect_done("open --call 4 --call-id fourth");
    here.expect_done("tdm --call 4 --line 3");
    outcome const nowhere = here.fxsctl("dtmf --call 4 5");
    EXPECT_EQ(nowhere.exit_code, 4);
    EXPECT_NE(nowhere.err.find("no destination"), std::string::npos) << nowhere.err;
    outcome const refused = here.fxsctl("tdm --call 4 --line 0");
    EXPECT_EQ(refused.exit_code, 4);
    EXPECT_NE(refused.err.find("two calls already"), std::string::npos) << refused.err;
    EXPECT_EQ(here.fxsctl("call 5 --line 0 --to 127.0.0.1:9").exit_code, 4);
    diagnosis const found = examine(here);
    EXPECT_EQ(found.first(4, out), "third-call") << found.text;
    EXPECT_EQ(found.first(0, in) + found.first(0, out) + found.first(2, in), "") << found.text;
    here.lines->mount().stop();
    EXPECT_EQ(examine(here, " --call 1").first(1, out), "device-gone");
    outcome const missing = here.fxsctl("call 6 7 --lines 2,3");
    EXPECT_EQ(missing.exit_code, 4);
    EXPECT_NE(missing.err.find("cannot be used"), std::string::npos) << missing.err;
}

TEST(doctor_of_the_process, finds_why_it_does_not_answer) {
    scene here;
    auto stranger = protocol::control_client::connect_udp("127.0.0.1", here.process.port);
    media_process second({"--debug", "--log", "1", "--port", std::to_string(here.process.port)});
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(examine(here).first(-1, "control"), "second-process");
    EXPECT_NE(second.error_output().find("control port cannot be had"), std::string::npos);
    ASSERT_TRUE(stranger.start_session(20s));
    diagnosis const taken = examine(here);
    EXPECT_NE(taken.text.find("session-taken"), std::string::npos) << taken.text;

    stranger.send(protocol::from_hex("0000ffff").value());
    EXPECT_EQ(diagnosis(here.fxsctl("--timeout 500 --json doctor")).first(-1, "control"), "reassembly-poisoned");
    here.expect_done("--timeout 1000 resync");
    kill(here.process.process.pid(), SIGSTOP);
    EXPECT_EQ(diagnosis(here.fxsctl("--timeout 500 --json doctor")).first(-1, "control"), "process-stopped");
    kill(here.process.process.pid(), SIGCONT);
    EXPECT_EQ(run_fxsctl("doctor", free_port()).exit_code, 3);
}

TEST(hold, is_noticed_by_the_monitor_and_resumed) {
    scene here;
    here.expect_done("call 0 1");
    far_end held_up({.at_once = 16});
    nlohmann::json const ports = nlohmann::json::parse(here.fxsctl("--json open --call 2 --call-id delayed").out);
    here.expect_done("media --call 2 --codec pcma --xr voip-metrics --rtp " + held_up.address());
    here.expect_done("tdm --call 2 --line 2");
    held_up.start(ports["rtp_port"], ports["rtcp_port"]);
    std::this_thread::sleep_for(4500ms);  // two reports of media that run
    EXPECT_EQ(examine(here, " --call 2").first(2, in), "buffer-at-ceiling");
    here.expect_done("refresh --call 2");

    here.expect_done("hold --call 1");
    EXPECT_TRUE(here.watching.wait_for_text("media-stopped call=0 direction=network->phone"));
    EXPECT_TRUE(here.watching.wait_for_text("media-stopped call=1 direction=phone->network"));
    here.expect_done("resume --call 1");
    EXPECT_TRUE(here.watching.wait_for_text("media-resumed call=0 direction=network->phone"));
    EXPECT_TRUE(here.watching.wait_for_text("> tdm call=1 line=1"));
    diagnosis const found = examine_healthy(here, {0, 1, 2});
    EXPECT_TRUE(found.all_ok) << found.text;

    here.expect_done("media --call 0 --codec pcmu");
    EXPECT_TRUE(here.watching.wait_for_text(R"(send="0=pcmu" map="0=pcmu" map="8=pcma")"));
}

/// Calls between the four lines that differ in codec, packet time, keys, level and reports. FXSMEDIA_DOCTOR_SCENES sets
/// how many scenes of four calls; 25 take three minutes.
TEST(doctor_of_healthy_calls, finds_nothing) {
    char const* const asked = std::getenv("FXSMEDIA_DOCTOR_SCENES");
    seed_range{1, asked != nullptr ? static_cast<unsigned>(std::atoi(asked)) : 2}.roll([](dice& random) {
        scene here({}, random.between(2000, 16000));
        for (char const* const pair : {"0 1", "2 3"}) {
            char const* const codecs[] = {"pcmu", "pcma", "g722", "g726", "gsm"};
            std::string options = std::string(" --codec ") + codecs[random.below(5)];
            options += " --ptime " + std::to_string(20 * random.between(1, 3));
            options += random.chance(40) ? " --srtp" : "";
            options += random.chance(50) ? " --xr all" : "";
            here.expect_done("call " + std::string(pair) + options);
        }
        std::this_thread::sleep_for(500ms);
        diagnosis const found = examine_healthy(here, {0, 1, 2, 3});
        EXPECT_EQ(found.code, 0) << found.text;
        EXPECT_TRUE(found.all_ok) << found.text;
    });
}

}  // namespace
