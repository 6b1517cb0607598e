#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/media_process.h"

using namespace std::chrono_literals;

namespace {

constexpr auto patience = 20s;
constexpr protocol::codec_choice linear{0, 100};

class limits : public testing::Test {
protected:
    template <class command>
    void send(command const& c) {
        process.send(protocol::encode(c));
    }
    bool logged(std::string const& begin) {
        return process.client
            .wait_for<protocol::log_line>(patience,
                                          [&](protocol::log_line const& line) { return line.text.starts_with(begin); })
            .has_value();
    }
    /// The timers run: a heartbeat comes after all that has come so far.
    void expect_beat() {
        while (process.client.receive_datagram(0ms))
            continue;
        process.client.kept().clear();
        EXPECT_TRUE(process.client.wait_for<protocol::heartbeat>(patience));
    }

    std::unique_ptr<telephones> lines = speakers();
    controlled_process process{{"--tdm", lines->tdm_path()}};
};

TEST_F(limits, without_descriptors_nothing_opens_until_there_are_some_again) {
    pid_t const pid = process.process.pid();
    process.connect(0, 1, linear);
    rlimit usual{}, few{};
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &usual), 0);
    few.rlim_max = usual.rlim_max;
    while (std::filesystem::is_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(few.rlim_cur)))
        few.rlim_cur++;
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &few, nullptr), 0);
    send(protocol::log_level_command{.level = 7});
    EXPECT_EQ(process.open(2).rtp_port, 0);
    process.put_on_line(0, 0);
    EXPECT_FALSE(lines->bank().line(0).is_open());
    send(protocol::reset_base_command{.command = 3});
    EXPECT_TRUE(logged("Failure to send command to driver"));
    send(protocol::media_command{.call = 2, .rtp_dest = protocol::address{{127, 0, 0, 1}, 9}, .tcp = true});
    EXPECT_TRUE(logged("Could not open a socket for 127.0.0.1:9"));
    expect_beat();

    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &usual, nullptr), 0);
    EXPECT_NE(process.open(2).rtp_port, 0);
    process.put_on_line(0, 0);
    process.put_on_line(1, 1);
    ASSERT_TRUE(lines->wait_for_open(2));
    EXPECT_TRUE(lines->hears(1)) << "the call from before";
}

TEST_F(limits, calls_outlive_the_call_control_that_made_them) {
    process.call_between(*lines);
    process.client = protocol::control_client();  // what is sent there is refused from now on
    EXPECT_TRUE(lines->hears(1));
    process.client = protocol::control_client::connect_udp("127.0.0.1", process.port);
    EXPECT_TRUE(process.client.start_session(patience));
    EXPECT_TRUE(lines->hears(0));
    send(protocol::end_command{.call = 0});
    send(protocol::end_command{.call = 1});
    EXPECT_TRUE(lines->wait_for_open(0));
}

TEST_F(limits, a_call_control_that_does_not_read_loses_datagrams_only) {
    for (int i = 0; i < 20000; i++)
        send(protocol::end_command{});
    expect_beat();
    EXPECT_NE(process.open(7).rtp_port, 0);
}

TEST_F(limits, a_process_that_was_stopped_goes_on_with_the_newest_audio) {
    process.call_between(*lines);
    EXPECT_TRUE(lines->hears(1));
    kill(process.process.pid(), SIGSTOP);
    lines->mount().advance(500);
    kill(process.process.pid(), SIGCONT);
    EXPECT_TRUE(lines->hears(0));
    EXPECT_TRUE(lines->hears(1));
    lines->mount().locked([&] {
        EXPECT_GE(lines->bank().line(0).counters().overruns, 400u);
        EXPECT_EQ(lines->bank().line(0).samples_to_read(), 0u) << "nothing is late for ever";
    });
    expect_beat();
}

TEST(limits_at_start, leaves_descriptors_alone_that_select_cant_take) {
    rlimit usual{}, many{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    many = {5 * FD_SETSIZE, usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    std::vector<int> inherited;
    do
        inherited.push_back(dup(STDIN_FILENO));
    while (inherited.back() >= 0 && inherited.back() < 4 * FD_SETSIZE);
    std::uint16_t const port = free_port();
    media_process process({"--debug", "--port", std::to_string(port)});  // standard descriptors become sockets
    for (int const fd : inherited)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &usual);
    auto client = protocol::control_client::connect_udp("127.0.0.1", port);
    ASSERT_TRUE(client.start_session(patience));
    for (std::uint16_t call = 0; call < 8; call++) {
        client.send(protocol::encode(protocol::open_command{.call = call}));
        auto const reply = client.wait_for<protocol::open_reply>(patience);
        ASSERT_TRUE(reply.has_value());
        EXPECT_NE(reply->rtp_port, 0);
    }
    client.kept().clear();
    EXPECT_TRUE(client.wait_for<protocol::heartbeat>(patience));
}

}  // namespace
