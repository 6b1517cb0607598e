// `fxsctl call`: whole calls from a few words.

#include <gtest/gtest.h>

#include "tests/tools/fxsctl/fxsctl.h"

namespace {

TEST(call, these_words_make_these_commands) {
    std::string const rx(60, 'a'), tx(60, 'b');
    struct {
        std::string arguments;
        std::string printed;                                      // a part of it
        std::vector<std::pair<std::size_t, std::string>> sent{};  // number of the command, parts of it
    } const cases[] = {
        {"1 --line 0 --to 127.0.0.1:20000 --codec pcmu",
         "call call=1 line=0 rtp_port=40002 rtcp_port=40003 remote=127.0.0.1:20000\n",
         {{0, "001000120004000200010016000866787363746c2d31"},  // call identifier fxsctl-1
          {1, "00110026000400020001000600020001001000020100000500064e207f000001001a00064e217f000001"},
          {2, "0012000c000400020001001200020000"}}},
        {"1 --to [::1]:5004 --tcp", "remote=[::1]:5004", {{1, "002200020001 001a0012138d"}}},
        // with each other: each sends to the other's port
        {"2 3 --lines 0,3 --codec pcma",
         "",
         {{2, "000400020002 000500069c467f000001"},
          {3, "0012000c000400020002001200020000"},
          {4, "000400020003 000500069c447f000001"},
          {5, "0012000c000400020003001200020003"}}},
        {"1 2 --xr loss-rle=9,voip-metrics",
         "",
         {{2, "0015001b706b742d6c6f73732d726c653d3920766f"}, {4, "0015001b"}}},
        {"1 2 --xr all", "", {{2, protocol::to_hex(protocol::to_bytes("pkt-dup-rle pkt-rcpt-times rcvr"))}}},
        {"1 2 --srtp --srtp-tag 4 --srtp-mki 07 --srtp-rx-key " + rx + " --srtp-tx-key " + tx,
         "",
         {{2, "0017001e" + rx + " 0018001e" + tx + " 0019000104 001e000107"},
          {4, "0017001e" + tx + " 0018001e" + rx + " 0019000104"}}},
        {"1 --to 127.0.0.1:9 --srtp --show-keys --srtp-tx-key " + tx,
         "srtp_tx_key=" + tx,
         {{1, "0017001e 0018001e" + tx}}},
    };
    for (auto const& one : cases) {
        SCOPED_TRACE(one.arguments);
        fake_process process;
        outcome const run = run_fxsctl("call " + one.arguments, &process);
        EXPECT_EQ(run.exit_code, 0) << run.err;
        EXPECT_NE(run.out.find(one.printed), std::string::npos) << run.out;
        EXPECT_EQ(run.out.find(tx), one.printed.ends_with(tx) ? run.out.rfind(tx) : std::string::npos);
        std::vector<std::string> const commands = process.commands();
        ASSERT_EQ(commands.size(), one.arguments.find("--to") == std::string::npos ? 6U : 3U);
        for (auto const& [number, parts] : one.sent)
            for (std::string const& part : split(parts, ' '))
                EXPECT_NE(commands[number].find(part), std::string::npos) << number << ": " << part;
    }
}

TEST(call, keys_drawn_for_two_calls_cross_over) {
    fake_process process;
    outcome const run = run_fxsctl("call 0 1 --srtp", &process);
    std::vector<std::string> const commands = process.commands();
    ASSERT_EQ(commands.size(), 6U) << run.err;
    auto const key_of = [&](std::size_t command, char const* header) {
        return commands[command].substr(commands[command].find(header) + 8, 60);
    };
    std::string const rx = key_of(2, "0017001e"), tx = key_of(2, "0018001e");
    EXPECT_EQ(rx, key_of(4, "0018001e"));
    EXPECT_EQ(tx, key_of(4, "0017001e"));
    EXPECT_NE(rx, tx);
    EXPECT_EQ(run.out.find(rx), std::string::npos) << "keys must not be printed";
}

TEST(call, half_a_call_is_ended_again) {
    fake_process process;
    process.answer("");
    EXPECT_EQ(run_fxsctl("call 0 1", &process).exit_code, 4);
    ASSERT_TRUE(process.wait_for_commands(3));
    EXPECT_EQ(process.commands()[1], "00040006000400020000");
    EXPECT_EQ(process.commands()[2], "00040006000400020001");
}

}  // namespace
