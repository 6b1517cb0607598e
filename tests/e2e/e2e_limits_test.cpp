#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/e2e/media_process.h"

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

constexpr auto patience = 20s;
constexpr protocol::codec_choice linear{0, 100};

class limits : public testing::Test {
protected:
    limits() : lines(speakers()), directory(testing::TempDir() + "fxs-links-XXXXXX") {
        EXPECT_NE(mkdtemp(directory.data()), nullptr);
        for (char line = '0'; line < '4'; line++)
            link(line, lines->tdm_path() + line);
        process = std::make_unique<controlled_process>(std::vector<std::string>{"--tdm", directory + "/sdt"});
    }
    ~limits() override {
        process.reset();
        fs::remove_all(directory);
    }
    void link(char line, std::string const& device) {
        fs::remove(directory + "/sdt" + line);
        if (!device.empty())
            fs::create_symlink(device, directory + "/sdt" + line);
    }
    template <class command>
    void send(command const& c) {
        process->send(protocol::encode(c));
    }
    void limit_log(std::uint16_t level) { send(protocol::log_level_command{.level = level}); }
    bool logged(std::string const& begin) {
        return process->client
            .wait_for<protocol::log_line>(patience,
                                          [&](protocol::log_line const& line) { return line.text.starts_with(begin); })
            .has_value();
    }
    /// The timers run: a heartbeat comes after all that has come so far.
    void expect_beat() {
        while (process->client.receive_datagram(0ms))
            continue;
        process->client.kept().clear();
        EXPECT_TRUE(process->client.wait_for<protocol::heartbeat>(patience));
    }

    std::unique_ptr<telephones> lines;
    std::string directory;  ///< of links to the devices
    std::unique_ptr<controlled_process> process;
};

TEST_F(limits, without_descriptors_nothing_opens_until_there_are_some_again) {
    pid_t const pid = process->process.pid();
    process->connect(0, 1, linear);
    rlimit usual{}, few{};
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &usual), 0);
    few.rlim_max = usual.rlim_max;
    while (fs::is_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(few.rlim_cur)))
        few.rlim_cur++;
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &few, nullptr), 0);
    limit_log(7);
    EXPECT_EQ(process->open(2).rtp_port, 0);
    process->put_on_line(0, 0);
    EXPECT_FALSE(lines->bank().line(0).is_open());
    send(protocol::reset_base_command{.command = 3});
    EXPECT_TRUE(logged("Failure to send command to driver"));
    send(protocol::media_command{.call = 2, .rtp_dest = protocol::address{{127, 0, 0, 1}, 9}, .tcp = true});
    EXPECT_TRUE(logged("Could not open a socket for 127.0.0.1:9"));
    expect_beat();

    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &usual, nullptr), 0);
    EXPECT_NE(process->open(2).rtp_port, 0);
    process->put_on_line(0, 0);
    process->put_on_line(1, 1);
    ASSERT_TRUE(lines->wait_for_open(2));
    EXPECT_TRUE(lines->hears(1)) << "the call from before";
}

TEST_F(limits, a_broken_device_disturbs_nobody_and_is_replaced) {
    int line = -1;  // the far side of a terminal
    std::unique_ptr<telephones> others;
    struct {
        char const* what;
        std::function<std::string()> device;
        std::function<void()> break_it;
        char const* logged;  // at level 7, for as long as it is broken
    } const table[] = {
        {"missing", [] { return ""; }, [] {}, "Open "},
        {"a directory", [] { return "/tmp"; }, [] {}, "Open "},
        {"fails to read and write", [] { return "/proc/self/mem"; }, [] {}, "TDM read returned -1"},
        {"is at its end", [] { return "/dev/null"; }, [] {}, "TDM read returned 0"},
        {"hangs up",
         [&] {
             line = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
             EXPECT_EQ(grantpt(line) + unlockpt(line), 0);
             return ptsname(line);
         },
         [&] { close(line); }, "TDM read returned 0"},
        {"disappears",
         [&] {
             others = speakers();
             return others->tdm_path() + "0";
         },
         [&] { others->mount().stop(); }, "TDM read returned -1"},
    };
    process->connect(1, 2, linear);
    process->put_on_line(1, 1);
    process->put_on_line(2, 2);
    ASSERT_TRUE(lines->wait_for_open(2));
    for (auto const& [what, device, break_it, message] : table) {
        SCOPED_TRACE(what);
        link('0', device());
        process->connect(0, 3, linear);
        process->put_on_line(3, 3);
        limit_log(7);
        send(protocol::tdm_command{.call = 0, .slot = 0});
        EXPECT_TRUE(logged("Open "));
        break_it();
        EXPECT_TRUE(*message == 'O' || logged(message));
        limit_log(5);
        expect_beat();
        EXPECT_TRUE(lines->hears(2)) << "the call beside it";

        send(protocol::tdm_command{.call = 0});
        link('0', lines->tdm_path() + "0");
        process->put_on_line(0, 0);
        ASSERT_TRUE(lines->wait_for_open(4));
        EXPECT_TRUE(lines->hears(0)) << "the same call on the new device";
        for (std::uint16_t const call : {std::uint16_t{0}, std::uint16_t{3}})
            send(protocol::end_command{.call = call});
        ASSERT_TRUE(lines->wait_for_open(2));
    }
}

TEST_F(limits, calls_outlive_the_call_control_that_made_them) {
    process->connect(0, 1, linear);
    process->put_on_line(0, 0);
    process->put_on_line(1, 1);
    ASSERT_TRUE(lines->wait_for_open(2));
    process->client = protocol::control_client();  // what is sent there is refused from now on
    EXPECT_TRUE(lines->hears(1));
    process->client = protocol::control_client::connect_udp("127.0.0.1", process->port);
    EXPECT_TRUE(process->client.start_session(patience));
    EXPECT_TRUE(lines->hears(0));
    send(protocol::end_command{.call = 0});
    send(protocol::end_command{.call = 1});
    EXPECT_TRUE(lines->wait_for_open(0));
}

TEST_F(limits, a_call_control_that_does_not_read_loses_datagrams_only) {
    for (int i = 0; i < 20000; i++)
        send(protocol::end_command{});
    expect_beat();
    EXPECT_NE(process->open(7).rtp_port, 0);
}

TEST_F(limits, a_process_that_was_stopped_goes_on_with_the_newest_audio) {
    process->connect(0, 1, linear);
    process->put_on_line(0, 0);
    process->put_on_line(1, 1);
    ASSERT_TRUE(lines->wait_for_open(2));
    EXPECT_TRUE(lines->hears(1));
    kill(process->process.pid(), SIGSTOP);
    lines->mount().advance(500);
    kill(process->process.pid(), SIGCONT);
    EXPECT_TRUE(lines->hears(0));
    EXPECT_TRUE(lines->hears(1));
    lines->mount().locked([&] {
        EXPECT_GE(lines->bank().line(0).counters().overruns, 400u);
        EXPECT_EQ(lines->bank().line(0).samples_to_read(), 0u) << "nothing is late for ever";
    });
    expect_beat();
}

/// How often the process has gone to sleep by itself.
long sleeps(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;)
        if (word == "voluntary_ctxt_switches:" && status >> word)
            return std::stol(word);
    return -1;
}

TEST(limits_at_start, lives_without_its_control_port_and_its_devices) {
    controlled_process holder({});
    media_process process({"--debug", "--log", "1", "--port", std::to_string(holder.port), "--tdm", "/nowhere/sdt",
                           "--pipe", "/nowhere/fxs", "--tunnel", "/nowhere/tty"});
    long const before = sleeps(process.pid());
    for (int ms = 0; sleeps(process.pid()) < before + 2; ms++) {
        ASSERT_LT(ms, 20000) << "it neither waits nor beats";
        usleep(1000);
    }
    EXPECT_TRUE(process.alive());
    EXPECT_NE(process.error_output().find("control port cannot be had"), std::string::npos);
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
