// `fxsctl call`: whole calls from a few words.

#include <gtest/gtest.h>

#include "tests/tools/fxsctl/child.h"
#include "tests/tools/fxsctl/fake_process.h"

namespace {

struct ran {
    int exit_code;
    std::string out;
    std::string err;
    std::vector<std::string> commands;
};

ran run_call(fake_process& process, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {FXSCTL, "call", "--port", std::to_string(process.port())});
    child run(arguments);
    const int exit_code = run.wait();
    return {exit_code, run.out, run.err, process.commands()};
}

TEST(call, to_an_address) {
    fake_process process;
    const ran r = run_call(process, {"1", "--line", "0", "--to", "127.0.0.1:20000", "--codec", "pcmu"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, "call call=1 line=0 rtp_port=40002 rtcp_port=40003 remote=127.0.0.1:20000\n");
    ASSERT_EQ(r.commands.size(), 3U);
    EXPECT_EQ(r.commands[0],
              "00100012000400020001001600086678736374"
              "6c2d31");  // call identifier fxsctl-1
    EXPECT_EQ(r.commands[1],
              "00110026000400020001000600020001001000020100"
              "000500064e207f000001"
              "001a00064e217f000001");
    EXPECT_EQ(r.commands[2], "0012000c000400020001001200020000");
}

TEST(call, two_of_the_process_with_each_other) {
    fake_process process;
    const ran r = run_call(process, {"2", "3", "--lines", "0,3", "--codec", "pcma"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    ASSERT_EQ(r.commands.size(), 6U);  // open, open, then media and line for each
    EXPECT_NE(r.commands[2].find("000400020002"), std::string::npos);
    EXPECT_NE(r.commands[2].find("000500069c467f000001"), std::string::npos) << "call 2 must send to 40006";
    EXPECT_EQ(r.commands[3], "0012000c000400020002001200020000");
    EXPECT_NE(r.commands[4].find("000500069c447f000001"), std::string::npos) << "call 3 must send to 40004";
    EXPECT_EQ(r.commands[5], "0012000c000400020003001200020003");
}

TEST(call, ends_only_when_its_last_command_was_handled) {
    fake_process process(fake_process::manners::slow);
    const ran r = run_call(process, {"1", "--to", "127.0.0.1:20000"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.commands.size(), 3U);
}

TEST(call, keys_drawn_for_two_calls_cross_over) {
    fake_process process;
    const ran r = run_call(process, {"0", "1", "--srtp"});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    ASSERT_EQ(r.commands.size(), 6U);
    const auto key = [](const std::string& command, const std::string& header) {
        const std::size_t at = command.find(header);
        return at == std::string::npos ? std::string() : command.substr(at + 8, 60);
    };
    EXPECT_EQ(key(r.commands[2], "0017001e"), key(r.commands[4], "0018001e"));
    EXPECT_EQ(key(r.commands[2], "0018001e"), key(r.commands[4], "0017001e"));
    EXPECT_NE(key(r.commands[2], "0017001e"), key(r.commands[2], "0018001e"));
    EXPECT_EQ(r.out.find(key(r.commands[2], "0017001e")), std::string::npos) << "keys must not be printed";
    EXPECT_EQ(key(r.commands[2], "0017001e").size(), 60U);
}

TEST(call, options_of_a_call) {
    const std::string rx(60, 'a'), tx(60, 'b');
    const struct {
        std::vector<std::string> arguments;
        std::vector<std::string> sent;     // in the first media command
        std::vector<std::string> crossed;  // in the second one
        std::string printed;
    } cases[] = {
        {{"1", "--to", "[::1]:5004", "--tcp"}, {"002200020001", "001a0012138d"}, {}, "remote=[::1]:5004"},
        {{"1", "2", "--xr", "loss-rle=9,voip-metrics"},
         {"0015001b706b742d6c6f73732d726c653d3920766f"},
         {"0015"},
         ""},
        {{"1", "2", "--xr", "all"},
         {protocol::to_hex(protocol::to_bytes("pkt-dup-rle pkt-rcpt-times rcvr"))},
         {},
         ""},
        {{"1", "2", "--srtp-rx-key", rx, "--srtp", "--srtp-tx-key", tx, "--srtp-tag", "4", "--srtp-mki",
          "07"},
         {"0017001e" + rx, "0018001e" + tx, "0019000104", "001e000107"},
         {"0017001e" + tx, "0018001e" + rx, "0019000104"},
         ""},
        {{"1", "--to", "127.0.0.1:9", "--srtp", "--srtp-tx-key", tx, "--show-keys"},
         {"0017001e", "0018001e" + tx},
         {},
         "srtp_tx_key=" + tx},
    };
    for (const auto& one : cases) {
        fake_process process;
        const ran r = run_call(process, one.arguments);
        ASSERT_EQ(r.exit_code, 0) << r.err;
        const bool two = r.commands.size() == 6;
        for (const std::string& part : one.sent) {
            EXPECT_NE(r.commands.at(two ? 2 : 1).find(part), std::string::npos) << part;
        }
        for (const std::string& part : one.crossed) {
            EXPECT_NE(r.commands.at(4).find(part), std::string::npos) << part;
        }
        EXPECT_NE(r.out.find(one.printed), std::string::npos) << r.out;
        EXPECT_EQ(r.out.find(tx) != std::string::npos, !one.printed.empty() && one.printed.ends_with(tx));
    }
}

TEST(call, half_a_call_is_ended_again) {
    fake_process process;
    process.answer(16, {});
    const ran r = run_call(process, {"0", "1"});
    EXPECT_EQ(r.exit_code, 4);
    ASSERT_TRUE(process.wait_for_commands(3));
    EXPECT_EQ(process.commands()[1], "00040006000400020000");
    EXPECT_EQ(process.commands()[2], "00040006000400020001");
}

}  // namespace
