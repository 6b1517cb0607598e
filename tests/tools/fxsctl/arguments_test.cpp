// fxsctl's command line: which datagrams each subcommand sends, what is refused before anything is sent, exit codes.

#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "tests/tools/fxsctl/fxsctl.h"
#include "tools/protocol/worked_datagrams.h"

namespace {

std::string const key = "e1f97a0d3e018be0d64fa32c06de41390ec675ad498afeebb6960b3aabe6";

/// The text with words replaced by what they stand for.
std::string with(std::string text, std::map<std::string, std::string> const& meanings) {
    for (auto const& [word, meaning] : meanings)
        for (std::size_t at; (at = text.find(word)) != text.npos;)
            text.replace(at, word.size(), meaning);
    return text;
}

/// Everything but session commands, one behind the other, without blanks.
void expect_sent(std::string const& arguments, fake_process& process, std::string hex) {
    outcome const run = run_fxsctl(arguments, process.port());
    EXPECT_EQ(run.exit_code, 0) << arguments << ": " << run.err;
    std::string sent;
    for (std::string const& command : process.commands())
        sent += command;
    std::erase(hex, ' ');
    EXPECT_EQ(sent, hex) << arguments;
}

/// Arguments and what they send; "@": the worked datagram of that name in the page. $K and $F stand for a key and a
/// file with it.
std::string const sent_datagrams = R"(
open -c 0 --port-min 16400 --port-max 16402 --tos 184 --call-id demo-0 > @open
open --call 1 > @open-anywhere
media -c 0 --codec pcma --event-pt 101 --map 8=pcma --ptime 20 --ssrc 12345678 --rtp 127.0.0.1:20000 > @media
media -c 0 --rtp [::1]:20002 --no-rtcp > @media-ipv6
media -c 0 --xr "rcvr-rtt stat-summary voip-metrics" > @media-xr
media -c 0 --srtp-rx-key $K --srtp-tx-key e1f97a0d3e018be0d64fa32c06de413a0ec675ad498afeebb6960b3aabe6 > @media-srtp
tdm -c 0 --line 0 > @tdm
tdm -c 0 --none > @tdm-off
end 0 > @end
end 7 > @end-and-confirm
dtmf -c 0 5 > @dtmf
play -c 0 1 4 > @play
play -c 0 stop > @play-stop
tunnel -c 0 --rtp 000100002112a442303132333435363738396162 --to 127.0.0.1:20000 > @tunnel
log-level 1 > @log-level
ntp-offset -5 > @ntp-offset
led 1 > @led
led off > @led-off
reset-base 3 > @reset-base
ping > @session
signal --text hello > @signal
loopback-test > @loopback-test
dump > @dump
open -c 0 --tos 0 > 0010000c 000400020000 001f00020000
media -c 1 --codec 6 --pt 98 --event-pt 101 --map 98=g726 --map 8=pcma --ptime 30 --ssrc DEADBEEF > 0011002b 000400020001 000600026206 001000020662 001000020208 00110002001e 0013000165 00210004deadbeef
media -c 1 --rtp [::1]:4000 --no-rtcp --tcp > 00110022 000400020001 000500120fa000000000000000000000000000000001 002200020001
media -c 1 --srtp-mki 0102 --srtp-tx-key $K > 00110033 000400020001 0018001e$K 001900010a 001e00020102
media -c 0 --srtp-tag 4 --srtp-rx-key @$F > 0011002d 000400020000 0017001e$K 0019000104
end 1 6 > 00040006 000400020001 00040006 000400020006
play -c 0 fr busy > 000c0012 000400020000 001c00020002 001d0002000c
dtmf -c 1 0#D --code 16 > 000a000c 000400020001 001300020000 000a000c 000400020001 00130002000b 000a000c 000400020001 00130002000f 000a000c 000400020001 001300020010
tunnel -c 1 --rtcp 0102 --to 10.0.0.1:9 --tcp > 000f001c 000400020001 0005000600090a000001 000e00020102 002200020001
led three-flashes > 00160006 001b00020003
signal 01:02 ff --text hi > 00080011 000f00020102 000f0001ff 000f00026869
call 1 --line 0 --to 127.0.0.1:20000 --codec pcmu > 00100012 000400020001 0016000866787363746c2d31 0011002b 000400020001 000600020001 001000020100 0013000165 000500064e207f000001 001a00064e217f000001 0012000c 000400020001 001200020000
call 1 --to [::1]:5004 --tcp > 00100012 000400020001 0016000866787363746c2d31 00110049 000400020001 000600020802 001000020208 0013000165 00050012138c00000000000000000000000000000001 001a0012138d00000000000000000000000000000001 002200020001 0012000c 000400020001 001200020001
call 2 3 --lines 0,3 --codec pcma > 00100012 000400020002 0016000866787363746c2d32 00100012 000400020003 0016000866787363746c2d33 0011002b 000400020002 000600020802 001000020208 0013000165 000500069c467f000001 001a00069c477f000001 0012000c 000400020002 001200020000 0011002b 000400020003 000600020802 001000020208 0013000165 000500069c447f000001 001a00069c457f000001 0012000c 000400020003 001200020003
call 1 --to 127.0.0.1:9 --xr loss-rle=9,voip-metrics > 00100012 000400020001 0016000866787363746c2d31 0011004a 000400020001 000600020802 001000020208 0013000165 0005000600097f000001 001a0006000a7f000001 0015001b706b742d6c6f73732d726c653d3920766f69702d6d657472696373 0012000c 000400020001 001200020001
call 1 --to 127.0.0.1:9 --xr all > 00100012 000400020001 0016000866787363746c2d31 00110079 000400020001 000600020802 001000020208 0013000165 0005000600097f000001 001a0006000a7f000001 0015004a706b742d6c6f73732d726c6520706b742d6475702d726c6520706b742d726370742d74696d657320726376722d72747420737461742d73756d6d61727920766f69702d6d657472696373 0012000c 000400020001 001200020001
call 1 2 --srtp --srtp-tag 4 --srtp-mki 07 --srtp-rx-key $K --srtp-tx-key bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb > 00100012 000400020001 0016000866787363746c2d31 00100012 000400020002 0016000866787363746c2d32 00110079 000400020001 000600020802 001000020208 0013000165 000500069c447f000001 001a00069c457f000001 0017001e$K 0018001ebbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb 0019000104 001e000107 0012000c 000400020001 001200020001 00110079 000400020002 000600020802 001000020208 0013000165 000500069c427f000001 001a00069c437f000001 0017001ebbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb 0018001e$K 0019000104 001e000107 0012000c 000400020002 001200020002
)";

TEST(subcommands, send_these_datagrams) {
    std::string const key_file = testing::TempDir() + "fxsctl_key_" + std::to_string(getpid());
    std::ofstream(key_file) << key << "\n";
    std::map<std::string, protocol::worked_datagram> commands, reports;
    for (protocol::worked_datagram const& worked : protocol::load_worked_datagrams(PROTOCOL_PAGE))
        (worked.is_command ? commands : reports)[worked.name] = worked;
    for (std::string const& row : split(sent_datagrams.substr(1), '\n')) {
        std::size_t const mark = row.find(" > ");
        std::string hex = with(row.substr(mark + 3), {{"$K", key}});
        fake_process process;
        if (auto const found = commands.find(hex.substr(1)); hex[0] == '@' && found != commands.end()) {
            hex = protocol::to_hex(found->second.data);
            if (hex.ends_with("00130000"))
                hex.resize(hex.size() - 8);  // every run of fxsctl begins and ends with one of these
            if (!found->second.needs.empty())
                process.answer(protocol::to_hex(reports.at(found->second.reply).data));
            commands.erase(found);
        }
        expect_sent(with(row.substr(0, mark), {{"$K", key}, {"$F", key_file}}), process, hex);
    }
    EXPECT_TRUE(commands.empty()) << commands.begin()->first << " of the page is sent by nothing";
    std::remove(key_file.c_str());
}

TEST(subcommands, keys_drawn_for_two_calls_cross_over_and_are_printed_on_request) {
    for (bool const shown : {false, true}) {
        fake_process process;
        outcome const run = run_fxsctl(std::string("call 0 1 --srtp") + (shown ? " --show-keys" : ""), process.port());
        std::vector<std::string> const commands = process.commands();
        ASSERT_EQ(commands.size(), 6U) << run.err;
        auto const key_of = [&](std::size_t command, char const* header) {
            return commands[command].substr(commands[command].find(header) + 8, 60);
        };
        std::string const rx = key_of(2, "0017001e"), tx = key_of(2, "0018001e");
        EXPECT_EQ(rx, key_of(4, "0018001e"));
        EXPECT_EQ(tx, key_of(4, "0017001e"));
        EXPECT_NE(rx, tx);
        for (std::string const& printed : {"srtp_rx_key=" + rx, "srtp_tx_key=" + tx})
            EXPECT_EQ(run.out.find(printed) != run.out.npos, shown) << run.out;
        EXPECT_EQ(run.out.find(rx) != run.out.npos, shown) << run.out;
    }
}

TEST(subcommands, half_a_call_is_ended_again) {
    fake_process process;
    process.answer("");
    EXPECT_EQ(run_fxsctl("call 0 1", process.port()).exit_code, 4);
    std::vector<std::string> const commands = process.commands(3);
    EXPECT_EQ(commands.at(1) + commands.at(2), "0004000600040002000000040006000400020001");
}

/// A command, then what must not follow it, each with a part of the complaint behind ">".
std::string const wrong_arguments = R"(
|> no command|frobnicate > frobnicate|montor > `fxsctl monitor`|end > --all|reset-base 256 > 0 to 255|call 4 5 > --line|decode 0 > hexadecimal
open|> --call|-c 8 > 0 to 7|-c -1 > 0 to 7
open -c 0|--tos 256 > 0 to 255|--port-min 5000 --port-max 5000 > --port-max|--port-max 4000 > 49152
media -c 0|> nothing to set|--ptime 20 > --codec|--codec opus > opus|--codec 7 > --event-pt
media -c 0|--rtp example.org:5004 > --rtp|--rtp 10.0.0.1 > --rtp|--xr x --tcp > --rtp
media -c 0|--srtp-rx-key 0011 > 30 bytes|--srtp-rx-key $K00 > 31 bytes|--rtp 10.0.0.1:4 --srtp-tag 4 > --srtp-tx-key
media -c 0 --codec pcma|--pt 128 > 0 to 127|--ptime 25 > multiple of 10|--ssrc 123456 > --ssrc
media -c 0 --codec pcma|--map pcma > --map|--map 128=pcma > --map
tdm -c 0|> --line|--line 1 --none > --line|--line 4 > 0 to 3
play -c 0|us > kind|17 dial > 17|us engaged > engaged
dtmf -c 0|12x > x|> digits
log-level|10 > 0 to 9|-1 > 0 to 9
led|blue > blue|65536 > 65536
signal|0 > hexadecimal|> nothing to send
tunnel -c 0|> --rtcp|--rtp 00 --rtcp 00 > --rtcp
call 0|> --to|0 > itself|1 2 > calls|--to 10.0.0.1:4 --srtp > --show-keys
call 0 1|--lines 2 > as many lines|--tcp > --to|--xr loss > "loss" is none of|--xr voip-metrics=3 > voip-metrics=3
monitor|--quiet > --summary|--filter nonsense > nonsense|--duration -1 > --duration
ping|--port 70000 > 65535|--timeout 0 > --timeout
)";

TEST(subcommands, wrong_arguments_end_with_2_and_send_nothing) {
    fake_process process;
    int count = 0;
    for (std::string const& row : split(wrong_arguments.substr(1), '\n')) {
        std::vector<std::string> const cases = split(row, '|');
        for (std::size_t i = 1; i < cases.size(); i++, count++) {
            std::size_t const mark = cases[i].find("> ");
            std::string const arguments = with(cases[0] + " " + cases[i].substr(0, mark), {{"$K", key}});
            outcome const run = run_fxsctl(arguments, process.port());
            EXPECT_EQ(run.exit_code, 2) << arguments;
            EXPECT_NE(run.err.find(cases[i].substr(mark + 2)), std::string::npos) << arguments << ": " << run.err;
            EXPECT_EQ(run.out, "") << arguments;
        }
    }
    EXPECT_EQ(count, 57);
    EXPECT_TRUE(process.peers().empty());
}

/// Arguments, exit code, all of the output and a part of the errors ("\n" ends both); the answer to any command but
/// session, in hexadecimal, if it is not the usual one.
std::string const runs = R"(
open -c 1|0|open call=1 rtp_port=40002 rtcp_port=40003\n|
call 1 --line 0 --to 127.0.0.1:9|0|call call=1 line=0 rtp_port=40002 rtcp_port=40003 remote=127.0.0.1:9\n|
call 1 --to [::1]:9|0|call call=1 line=1 rtp_port=40002 rtcp_port=40003 remote=[::1]:9\n|
--json open -c 1|0|{"report":"open","call":1,"rtp_port":40002,"rtcp_port":40003}\n|
decode 00130000 001c0006000400020005|0|heartbeat\nplayback-empty call=5\n|
decode 0063|4|undecodable reason="element is cut off" data=0063\n|not everything could be decoded
--json decode --command 00110012 000400020000 001000020208 001000020001|0|{"command":"media","call":0,"map":["8=pcma","1=linear"]}\n|
--timeout 50 --port FREE ping|3||nothing listens on 127.0.0.1:FREE
--json --timeout 50 --port FREE ping|3||{"error":"nothing listens on 127.0.0.1:FREE
--timeout 50 --port FREE resync|3||nothing listens on 127.0.0.1:FREE
--local-port TAKEN ping|5||TAKEN
media -c 0 --srtp-tx-key @/nonexistent|5||/nonexistent
led 1|0||fxsctl: log level=0 text="oh no\x0a\"\xff"\n|00020012 000100020000 00020008 6f68206e6f 0a 22 ff
led 1|0|||0002000b 000100020005 0002000168
-v led 1|0||fxsctl: log level=5 text=h\n|0002000b 000100020005 0002000168
-w 50000 open -c 0|4||open|none
-w 50000 open -c 0|4||open|00060012 000400020001 000d00021000 000e00021001
-w 50000 open -c 0|4||port|00060012 000400020000 000d00020000 000e00020000
-w 50000 reset-base 3|4||no line device opened|none
-w 50000 reset-base 3|4|reset-base command=3 result=-1\n|refused the command|000b000c 001b00020003 000f0002ffff
-w 50000 loopback-test|4|loopback found=no\n|did not come back|00150006 000900020000
)";

TEST(runs, end_with_this_code_and_print_this) {
    fake_process taken;
    std::string const free_port = std::to_string(fake_process().port());
    auto const start = std::chrono::steady_clock::now();
    for (std::string row : split(runs.substr(1), '\n')) {
        SCOPED_TRACE(row);
        row = with(row, {{"FREE", free_port}, {"TAKEN", std::to_string(taken.port())}, {"\\n", "\n"}});
        std::vector<std::string> cells = split(row + "|", '|');
        cells.resize(5);
        fake_process process;
        if (!cells[4].empty())
            process.answer(cells[4] == "none" ? "" : cells[4]);
        outcome const run = run_fxsctl(cells[0], process.port());
        EXPECT_EQ(std::to_string(run.exit_code), cells[1]);
        EXPECT_EQ(run.out, cells[2]);
        EXPECT_NE(run.err.find(cells[3]), std::string::npos) << run.err;
        EXPECT_EQ(run.err.empty(), cells[3].empty()) << run.err;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(40)) << "refusal took a whole timeout";
}

TEST(runs, need_to_know_the_port) {
    EXPECT_NE(run_fxsctl("ping").err.find("FXSMEDIA_PORT"), std::string::npos);
    EXPECT_EQ(run_fxsctl("call --help").exit_code, 0);
}

}  // namespace
