// fxsctl's command line: which datagram each subcommand sends, what is refused before anything is sent, exit codes.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/tools/fxsctl/child.h"
#include "tests/tools/fxsctl/fake_process.h"

namespace {

constexpr const char* key30 = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d";

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> result{FXSCTL};
    for (std::string word; in >> word;) {
        result.push_back(word);
    }
    return result;
}

std::string port_of(fake_process& process) {
    return "FXSMEDIA_PORT=" + std::to_string(process.port());
}

std::string without_blanks(std::string text) {
    std::erase(text, ' ');
    return text;
}

TEST(subcommands, send_these_datagrams) {
    const struct {
        std::string arguments;
        std::vector<std::string> commands;
    } cases[] = {
        {"open --call 2 --port-min 16384 --port-max 32768 --tos 0 --call-id x",
         {"0010001d 000400020002 000b00024000 000c00028000 001f00020000 0016000178"}},
        {"media -c 0 --codec pcma", {"00110012 000400020000 000600020802 001000020208"}},
        {"media -c 1 --codec 6 --pt 98 --event-pt 101 --map 98=g726 --map 8=pcma --ptime 30 --ssrc DEADBEEF",
         {"0011002b 000400020001 000600026206 0013000165 001000020662 001000020208 00110002001e "
          "00210004deadbeef"}},
        {"media -c 1 --rtp 10.0.0.1:4000",
         {"0011001a 000400020001 000500060fa00a000001 001a00060fa10a000001"}},
        {"media -c 1 --rtp [::1]:4000 --no-rtcp --tcp",
         {"00110022 000400020001 000500120fa000000000000000000000000000000001 002200020001"}},
        {"media -c 1 --xr voip-metrics", {"00110016 000400020001 0015000c766f69702d6d657472696373"}},
        {std::string("media -c 1 --srtp-tx-key ") + key30 + " --srtp-mki 0102",
         {std::string("00110033 000400020001 0018001e") + key30 + " 001900010a 001e00020102"}},
        {"tdm -c 3 --line 2", {"0012000c 000400020003 001200020002"}},
        {"tdm -c 3 --none", {"0012000c 000400020003 001200020004"}},
        {"end 1 6", {"00040006000400020001", "00040006000400020006"}},
        {"play -c 0 fr busy", {"000c0012 000400020000 001c00020002 001d0002000c"}},
        {"play -c 0 16 4", {"000c0012 000400020000 001c00020004 001d00020010"}},
        {"play -c 0 stop", {"000c0012 000400020000 001c00020000 001d00020000"}},
        {"dtmf -c 1 0#D --code 16",
         {"000a000c 000400020001 001300020000", "000a000c 000400020001 00130002000b",
          "000a000c 000400020001 00130002000f", "000a000c 000400020001 001300020010"}},
        {"log-level 9", {"00070006 000100020009"}},
        {"ntp-offset -3600", {"000d0008 00140004fffff1f0"}},
        {"tunnel -c 1 --rtcp 0102 --to 10.0.0.1:9 --tcp",
         {"000f001c 000400020001 0005000600090a000001 000e00020102 002200020001"}},
        {"dump", {"00140000"}},
        {"led three-flashes", {"00160006 001b00020003"}},
        {"led 7", {"00160006 001b00020007"}},
        {"reset-base 12", {"000b0006 001b0002000c"}},
        {"signal 01:02 ff --text hi", {"00080011 000f00020102 000f0001ff 000f00026869"}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.arguments);
        fake_process process;
        child run(words(one.arguments), {port_of(process)});
        EXPECT_EQ(run.wait(), 0) << run.err;
        std::vector<std::string> expected;
        for (const std::string& command : one.commands) {
            expected.push_back(without_blanks(command));
        }
        EXPECT_EQ(process.commands(), expected);
    }
}

TEST(subcommands, wrong_arguments_end_with_2_and_send_nothing) {
    const struct {
        std::string arguments;
        std::string complaint;  // on standard error
    } cases[] = {
        {"", "no command"},
        {"frobnicate", "frobnicate"},
        {"open", "--call"},
        {"open -c 8", "0 to 7"},
        {"open -c -1", "0 to 7"},
        {"open -c 0 --tos 256", "0 to 255"},
        {"open -c 0 --port-min 5000 --port-max 5000", "--port-max"},
        {"open -c 0 --port-max 4000", "49152"},
        {"media -c 0", "nothing to set"},
        {"media -c 0 --ptime 20", "--codec"},
        {"media -c 0 --codec opus", "opus"},
        {"media -c 0 --codec 7", "--event-pt"},
        {"media -c 0 --codec pcma --pt 128", "0 to 127"},
        {"media -c 0 --codec pcma --ptime 25", "multiple of 10"},
        {"media -c 0 --codec pcma --map pcma", "--map"},
        {"media -c 0 --codec pcma --map 128=pcma", "--map"},
        {"media -c 0 --codec pcma --ssrc 123456", "--ssrc"},
        {"media -c 0 --rtp example.org:5004", "--rtp"},
        {"media -c 0 --rtp 10.0.0.1", "--rtp"},
        {"media -c 0 --xr x --tcp", "--rtp"},
        {"media -c 0 --srtp-rx-key 0011", "30 bytes"},
        {std::string("media -c 0 --srtp-rx-key ") + key30 + "00", "31 bytes"},
        {"media -c 0 --rtp 10.0.0.1:4 --srtp-tag 4", "--srtp-tx-key"},
        {"tdm -c 0", "--line"},
        {"tdm -c 0 --line 1 --none", "--line"},
        {"tdm -c 0 --line 4", "0 to 3"},
        {"end", "--all"},
        {"play -c 0 us", "kind"},
        {"play -c 0 17 dial", "17"},
        {"play -c 0 us engaged", "engaged"},
        {"dtmf -c 0 12x", "x"},
        {"dtmf -c 0", "digits"},
        {"log-level 10", "0 to 9"},
        {"log-level -1", "0 to 9"},
        {"led blue", "blue"},
        {"led 65536", "65536"},
        {"signal 0", "hexadecimal"},
        {"signal", "nothing to send"},
        {"reset-base 256", "0 to 255"},
        {"tunnel -c 0", "--rtcp"},
        {"tunnel -c 0 --rtp 00 --rtcp 00", "--rtcp"},
        {"call 0", "--to"},
        {"call 0 0", "itself"},
        {"call 0 1 2", "calls"},
        {"call 4 5", "--line"},
        {"call 0 1 --lines 2", "as many lines"},
        {"call 0 --to 10.0.0.1:4 --srtp", "--show-keys"},
        {"call 0 1 --tcp", "--to"},
        {"call 0 1 --xr loss", "\"loss\" is none of"},
        {"call 0 1 --xr voip-metrics=3", "voip-metrics=3"},
        {"monitor --quiet", "--summary"},
        {"monitor --filter nonsense", "nonsense"},
        {"monitor --duration -1", "--duration"},
        {"decode 0", "hexadecimal"},
        {"ping --port 70000", "65535"},
        {"ping --timeout 0", "--timeout"},
    };
    fake_process process;
    for (const auto& one : cases) {
        child run(words(one.arguments), {port_of(process)});
        EXPECT_EQ(run.wait(), 2) << one.arguments;
        EXPECT_NE(run.err.find(one.complaint), std::string::npos) << one.arguments << ": " << run.err;
        EXPECT_EQ(run.out, "") << one.arguments;
    }
    EXPECT_TRUE(process.peers().empty());
}

TEST(exit_codes, no_process_no_port_silent_process) {
    child no_port(words("ping"));
    EXPECT_EQ(no_port.wait(), 2);
    EXPECT_NE(no_port.err.find("FXSMEDIA_PORT"), std::string::npos);
    const std::string free_port = std::to_string(fake_process().port());
    child nobody(words("--timeout 50 ping --port " + free_port));
    EXPECT_EQ(nobody.wait(), 3);
    EXPECT_NE(nobody.err.find("nothing listens on 127.0.0.1:" + free_port), std::string::npos) << nobody.err;
    fake_process silent(fake_process::manners::silent);
    child unanswered(words("--timeout 50 open -c 0"), {port_of(silent)});
    EXPECT_EQ(unanswered.wait(), 3);
    EXPECT_NE(unanswered.err.find("within 50 ms"), std::string::npos) << unanswered.err;
    EXPECT_TRUE(silent.commands().empty()) << "commands before the session was answered";
}

TEST(exit_codes, refused_by_the_process) {
    const struct {
        const char* arguments;
        std::uint16_t tag;
        const char* reply;  // hexadecimal, empty for none
        int exit_code;
    } cases[] = {
        {"open -c 0", 16, "", 4},
        {"open -c 0", 16, "00060012 000400020001 000d00021000 000e00021001", 4},  // somebody else's call
        {"open -c 0", 16, "00060012 000400020000 000d00020000 000e00020000", 4},  // no ports
        {"open -c 0", 16, "00060012 000400020000 000d00021000 000e00021001", 0},
        {"reset-base 3", 11, "", 4},
        {"reset-base 3", 11, "000b000c 001b00020003 000f0002ffff", 4},
        {"reset-base 3", 11, "000b000c 001b00020003 000f00020000", 0},
        {"loopback-test", 21, "00150006 000900020000", 4},
        {"loopback-test", 21, "00150006 000900020001", 0},
    };
    const auto start = std::chrono::steady_clock::now();
    for (const auto& one : cases) {
        fake_process process;
        process.answer(one.tag, protocol::from_hex(one.reply).value());
        child run(words(std::string("--timeout 50000 ") + one.arguments), {port_of(process)});
        EXPECT_EQ(run.wait(), one.exit_code)
            << one.arguments << " answered with " << one.reply << ": " << run.err;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(40))
        << "refusal took a whole timeout";
}

TEST(exit_codes, local_port_taken_and_unreadable_key_file) {
    fake_process process;
    const std::string taken =
        std::to_string(process.port());  // on 127.0.0.1, so the any-address clashes with it
    child run(words("--local-port " + taken + " ping"), {port_of(process)});
    EXPECT_EQ(run.wait(), 5);
    EXPECT_NE(run.err.find(taken), std::string::npos) << run.err;
    child no_file(words("media -c 0 --srtp-tx-key @/nonexistent"), {port_of(process)});
    EXPECT_EQ(no_file.wait(), 5);
}

TEST(output, text_json_and_help) {
    fake_process process;
    child text(words("open -c 1"), {port_of(process)});
    text.wait();
    EXPECT_EQ(text.out, "open call=1 rtp_port=40002 rtcp_port=40003\n");
    child json(words("--json open -c 1"), {port_of(process)});
    json.wait();
    EXPECT_EQ(json.out, "{\"report\":\"open\",\"call\":1,\"rtp_port\":40002,\"rtcp_port\":40003}\n");
    child help(words("call --help"));
    EXPECT_EQ(help.wait(), 0);
    EXPECT_NE(help.out.find("conference"), std::string::npos);
}

TEST(output, log_lines_of_failures_show_on_standard_error) {
    fake_process process;
    process.answer(22, protocol::from_hex("00020012 000100020000 00020008 6f68206e6f 0a 22 ff").value());
    child quiet(words("led 1"), {port_of(process)});
    EXPECT_EQ(quiet.wait(), 0);
    EXPECT_EQ(quiet.err, "fxsctl: log level=0 text=\"oh no\\x0a\\\"\\xff\"\n");
    process.answer(22, protocol::from_hex("0002000b 000100020005 0002000168").value());
    child below(words("led 1"), {port_of(process)});
    below.wait();
    EXPECT_EQ(below.err, "");
    child verbose(words("-v led 1"), {port_of(process)});
    verbose.wait();
    EXPECT_EQ(verbose.err, "fxsctl: log level=5 text=h\n");
}

TEST(output, decode_explains_captured_datagrams) {
    child both(words("decode 00130000 001c0006000400020005"));
    EXPECT_EQ(both.wait(), 0);
    EXPECT_EQ(both.out, "heartbeat\nplayback-empty call=5\n");
    child command(words("--json decode --command 00110012 000400020000 001000020208 001000020001"));
    EXPECT_EQ(command.wait(), 0);
    EXPECT_EQ(nlohmann::json::parse(command.out)["map"], (nlohmann::json{"8=pcma", "1=linear"}));
    child wrong(words("decode 0063"));
    EXPECT_EQ(wrong.wait(), 4);
    EXPECT_EQ(wrong.out, "undecodable reason=\"element is cut off\" data=0063\n");
}

TEST(keys, are_read_from_a_file) {
    const std::string path = testing::TempDir() + "fxsctl_key_" + std::to_string(getpid());
    std::ofstream(path) << key30 << "\n";
    fake_process process;
    child run(words("media -c 0 --srtp-rx-key @" + path + " --srtp-tag 4"), {port_of(process)});
    EXPECT_EQ(run.wait(), 0) << run.err;
    std::remove(path.c_str());
    EXPECT_EQ(process.commands().at(0),
              without_blanks(std::string("0011002d 000400020000 0017001e") + key30 + " 0019000104"));
}

}  // namespace
