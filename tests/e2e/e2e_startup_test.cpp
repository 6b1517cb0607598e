#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/media_process.h"

using namespace std::chrono_literals;

namespace {

TEST(startup, answers_with_exit_status_and_version) {
    struct {
        std::vector<std::string> arguments;
        int status;
        char const* output;
    } const table[] = {
        {{"--version"}, 0, "Version: 3159\n"},
        {{"--frobnicate", "--version"}, 0, "Version: 3159\n"},
        {{"--frobnicate"}, 1, ""},
        {{"--port"}, 1, ""},
        {{"--debug", "--log"}, 1, ""},
        {{"--extensions", "dtmf,louder"}, 1, ""},
        {{"--extensions"}, 1, ""},
    };
    for (auto const& row : table) {
        media_process process(row.arguments);
        EXPECT_EQ(process.wait(), row.status) << row.arguments[0];
        EXPECT_EQ(process.error_output(), row.output) << row.arguments[0];
    }
}

TEST(startup, names_the_extensions) {
    media_process process({"--extensions", "dtmf", "--extensions", "help"});
    EXPECT_EQ(process.wait(), 0);
    for (char const* const name : {"\ndtmf: ", "\ng722: ", "\nplayout: "})
        EXPECT_NE(("\n" + process.error_output()).find(name), std::string::npos) << name;
}

TEST(startup, beats_at_the_given_peer_every_second) {
    std::uint16_t const process_port = free_port();
    auto peer = protocol::control_client::connect_udp("127.0.0.1", process_port);
    media_process process({"--debug", "--log", "1", "--port", std::to_string(process_port), "--dest-port",
                           std::to_string(peer.local_port())});
    for (int beat = 0; beat < 3; beat++) {
        auto const datagram = peer.receive_datagram(10s);
        ASSERT_TRUE(datagram.has_value());
        EXPECT_EQ(protocol::to_hex(*datagram), "00130000");
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

TEST(startup, obeys_its_peer_only) {
    controlled_process process({});
    auto stranger = protocol::control_client::connect_udp("127.0.0.1", process.port);
    stranger.send(protocol::encode(protocol::open_command{.call = 0}));
    process.settle();
    EXPECT_EQ(process.open(1).call, 1);
    for (protocol::report const& report : process.client.kept())
        EXPECT_FALSE(std::holds_alternative<protocol::open_reply>(report)) << "the stranger's command was obeyed";
}

}  // namespace
