#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "tests/e2e/media_process.h"
#include "tests/support/signals.h"
#include "tools/protocol/worked_datagrams.h"

using namespace std::chrono_literals;

namespace {

TEST(startup, answers_with_exit_status_and_version) {
    struct {
        std::vector<std::string> arguments;
        int status;
        std::regex output;
    } const table[] = {
        {{"--version"}, 0, std::regex("Version: 3159\n")},
        {{"--frobnicate"}, 1, std::regex("")},
        {{"--extensions", "dtmf,louder"}, 1, std::regex("")},
        {{"--extensions", "dtmf", "--extensions", "help"},
         0,
         std::regex("dtmf: (.|\n)*\ng722: (.|\n)*\nplayout: (.|\n)*")},
    };
    for (auto const& row : table) {
        media_process process(row.arguments);
        EXPECT_EQ(process.wait(), row.status) << row.arguments[0];
        EXPECT_TRUE(std::regex_match(process.error_output(), row.output)) << process.error_output();
    }
}

/// Whether a descriptor of the process is a file (standard error is one in these tests); it may have become a socket.
bool is_file(pid_t pid, int fd) {
    std::error_code none;
    auto const target =
        std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd), none);
    return !none && !target.string().starts_with("socket:");
}

TEST(startup, closes_the_standard_descriptors_unless_told_to_log) {
    for (bool const keep : {false, true}) {
        std::uint16_t const port = free_port();
        auto peer = protocol::control_client::connect_udp("127.0.0.1", port);
        std::vector<std::string> arguments{"--debug", "--port", std::to_string(port)};
        if (keep)
            arguments.insert(arguments.end(), {"--log", "3"});
        media_process process(arguments);
        ASSERT_TRUE(peer.start_session(20s));
        for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++)
            EXPECT_EQ(is_file(process.pid(), fd), keep) << fd;
    }
}

/// Waits for the datagram that the pattern describes; what else arrives is passed over.
bool answered(protocol::control_client& client, protocol::worked_datagram const& wanted) {
    auto const deadline = std::chrono::steady_clock::now() + 20s;
    while (std::chrono::steady_clock::now() < deadline) {
        auto const datagram = client.receive_datagram(1s);
        if (datagram && wanted.matches(*datagram))
            return true;
    }
    return false;
}

TEST(protocol, every_worked_datagram_does_what_the_manual_says) {
    auto const datagrams = protocol::load_worked_datagrams(FXSMEDIA_SOURCE "/docs/control-protocol.md");
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    int replies = 0;
    for (protocol::worked_datagram const& worked : datagrams) {
        if (!worked.is_command || worked.name.find("loopback") != std::string::npos)
            continue;
        process.send(worked.data);
        if (worked.reply.empty())
            continue;
        auto const reply = std::find_if(datagrams.begin(), datagrams.end(), [&](auto const& candidate) {
            return !candidate.is_command && candidate.name == worked.reply;
        });
        ASSERT_NE(reply, datagrams.end()) << worked.reply;
        EXPECT_TRUE(answered(process.client, *reply)) << worked.name << " is not answered by " << worked.reply;
        replies++;
    }
    EXPECT_GE(replies, 3);
    EXPECT_TRUE(process.process.alive());
}

/// Where `said` begins in `heard` to the sample; -1 when it is not there.
int position_of(signals::samples const& said, signals::samples const& heard) {
    auto const found = std::search(heard.begin(), heard.end(), said.begin(), said.end());
    return found == heard.end() ? -1 : static_cast<int>(found - heard.begin());
}

TEST(call, carries_every_sample_both_ways) {
    constexpr int block = 80;
    signals::samples voices[2];
    std::vector<fxsline::speech> says;
    for (unsigned line : {0, 1}) {
        voices[line] = signals::speech_like(2 * 8000, 8000, line + 1);
        says.push_back(fxsline::speech::recording(voices[line], false, "test"));
    }
    telephones lines(says);
    controlled_process process({"--tdm", lines.tdm_path()});
    process.call_between(lines);
    lines.run(230);
    for (unsigned line : {0, 1}) {
        int const at = position_of(voices[1 - line], lines.heard(line));
        EXPECT_GE(at, block);
        EXPECT_LE(at, 6 * block) << "20 ms packets, one block in the line's queue";
    }
}

}  // namespace
