#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/media_process.h"

using namespace std::chrono_literals;

namespace {

constexpr auto patience = 20s;

/// What the driver was told about the LED, oldest first: "on 0 off 0 " with the line whose device was used. The
/// mount must be locked.
std::string led_events(telephones const& lines) {
    std::string all;
    for (fxsline::line_event const& event : lines.events())
        if (event.kind == fxsline::event_kind::led_on || event.kind == fxsline::event_kind::led_off)
            all += (event.kind == fxsline::event_kind::led_on ? "on " : "off ") + std::to_string(event.line) + " ";
    return all;
}

TEST(device, led_blinks_on_the_open_line_until_it_is_switched_off) {
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.open(0);
    process.put_on_line(0, 2);
    ASSERT_TRUE(lines.wait_for_open(1));
    process.send(protocol::encode(protocol::led_command{.pattern = 2}));
    ASSERT_TRUE(lines.mount().wait_until(
        [&] { return led_events(lines).starts_with("on 2 off 2 on 2 off 2 on 2 off 2 on 2 off 2 on 2 off 2 "); }));
    process.send(protocol::encode(protocol::led_command{.pattern = 3}));
    process.settle();
    process.send(protocol::encode(protocol::led_command{}));
    process.settle();
    auto const told = [&] { return lines.mount().locked([&] { return led_events(lines); }); };
    std::string const until_off = told();
    EXPECT_TRUE(until_off.ends_with("off 2 "));
    process.client.kept().clear();
    for (int beat = 0; beat < 2; beat++)
        ASSERT_TRUE(process.client.wait_for<protocol::heartbeat>(patience));
    EXPECT_EQ(told(), until_off) << "dark for a second and more";
}

TEST(device, base_commands_reach_the_driver_and_the_third_is_answered) {
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    for (int const open_line : {-1, 1}) {
        if (open_line >= 0) {
            process.open(0);
            process.put_on_line(0, static_cast<std::uint16_t>(open_line));
            ASSERT_TRUE(lines.wait_for_open(1));
        }
        process.send(protocol::encode(protocol::reset_base_command{.command = 2}));
        process.send(protocol::encode(protocol::reset_base_command{.command = 3}));
        auto const result = process.client.wait_for<protocol::driver_result>(patience);
        ASSERT_TRUE(result.has_value());
        EXPECT_EQ(result->command, 3);
        EXPECT_EQ(result->result, 42);
        lines.mount().locked([&] {
            std::string seen;
            for (fxsline::line_event const& event : lines.events())
                if (event.kind == fxsline::event_kind::base_command)
                    seen += std::to_string(event.line) + ":" + std::to_string(event.number) + "=" +
                            std::to_string(event.answer) + " ";
            EXPECT_EQ(seen, open_line < 0 ? "0:2=0 0:3=42 " : "0:2=0 0:3=42 1:2=0 1:3=42 ");
        });
    }
}

TEST(device, lines_of_the_driver_pipe_become_reports) {
    std::string directory = testing::TempDir() + "fxsmedia-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    std::string const base = directory + "/fxs";
    for (char const* const digit : {"0", "1"})
        ASSERT_EQ(mkfifo((base + digit).c_str(), 0600), 0);
    controlled_process process({"--pipe", base});
    int const driver = open((base + "0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(driver, 0);
    struct {
        std::string written;
        std::string reported;
    } const table[] = {
        {"HOOK 1 off\r\n", "HOOK 1 off"}, {"\n", ""}, {"A\r\nB\r\n", "A"}, {"C\r\n", "BC"}, {"last\n", "last"},
    };
    for (auto const& [written, reported] : table) {
        ASSERT_EQ(write(driver, written.data(), written.size()), static_cast<ssize_t>(written.size()));
        auto const line = process.client.wait_for<protocol::driver_line>(patience);
        ASSERT_TRUE(line.has_value());
        EXPECT_EQ(line->text, reported);
    }
    close(driver);
    process.settle();
    std::filesystem::remove_all(directory);
}

TEST(device, the_signalling_device_is_a_transparent_relay) {
    int const line = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);  // the far side of a serial line
    ASSERT_EQ(grantpt(line), 0);
    ASSERT_EQ(unlockpt(line), 0);
    controlled_process process({"--tunnel", ptsname(line)});
    protocol::bytes said;
    for (int i = 0; i < 1500; i++)
        said.push_back(static_cast<std::uint8_t>(i * 7));
    ASSERT_EQ(write(line, said.data(), said.size()), 1500);
    protocol::bytes relayed;
    while (relayed.size() < said.size()) {
        auto const message = process.client.wait_for<protocol::signal_data>(patience);
        ASSERT_TRUE(message.has_value());
        EXPECT_LE(message->data.size(), 1024u);
        relayed.insert(relayed.end(), message->data.begin(), message->data.end());
    }
    EXPECT_EQ(relayed, said);

    process.send(protocol::encode(protocol::signal_command{.data = {{1, 2, 3}, {}, {13, 10, 0, 255}, {4}}}));
    protocol::bytes heard(8);
    pollfd readable{line, POLLIN, 0};
    for (std::size_t n = 0; n < 8; n += static_cast<std::size_t>(read(line, &heard[n], 8 - n)))
        ASSERT_EQ(poll(&readable, 1, 20000), 1);
    EXPECT_EQ(heard, (protocol::bytes{1, 2, 3, 13, 10, 0, 255, 4}));

    close(line);
    process.send(protocol::encode(protocol::signal_command{.data = {{1, 2, 3}}}));
    auto const lost = process.client.wait_for<protocol::log_line>(
        patience, [](protocol::log_line const& logged) { return logged.level == 3; });
    ASSERT_TRUE(lost.has_value());
    EXPECT_EQ(lost->text, "Could not write 3 bytes");
    EXPECT_EQ(process.open(4).call, 4) << "calls go on without the device";
}

}  // namespace
