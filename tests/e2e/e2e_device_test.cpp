#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/media_process.h"

namespace {

/// What the driver was told through which line, oldest first: "on 2", "off 2", "line:command=answer". The mount must be
/// locked.
std::string told(telephones const& lines) {
    std::string all;
    for (fxsline::line_event const& event : lines.events()) {
        std::string const line = std::to_string(event.line);
        switch (event.kind) {
            case fxsline::event_kind::led_on: all += "on " + line + " "; break;
            case fxsline::event_kind::led_off: all += "off " + line + " "; break;
            case fxsline::event_kind::base_command:
                all += line + ":" + std::to_string(event.number) + "=" + std::to_string(event.answer) + " ";
                break;
            default: break;
        }
    }
    return all;
}

TEST(Device, LedBlinksOnTheOpenLineUntilItIsSwitchedOff) {
    telephones lines;
    controlled_process process(lines);
    process.open(0);
    process.put_on_line(0, 2);
    lines.wait_for_open(1);
    process.send(protocol::led_command{.pattern = 2});
    ASSERT_TRUE(lines.mount().wait_until(
        [&] { return told(lines).starts_with("on 2 off 2 on 2 off 2 on 2 off 2 on 2 off 2 on 2 off 2 "); }));
    process.send(protocol::led_command{.pattern = 3});
    process.send(protocol::led_command{});
    process.settle();
    auto const seen = [&] { return lines.mount().locked([&] { return told(lines); }); };
    std::string const until_off = seen();
    EXPECT_TRUE(until_off.ends_with("off 2 "));
    process.expect_beat();
    process.expect_beat();
    EXPECT_EQ(seen(), until_off) << "dark for a second and more";
}

TEST(Device, BaseCommandsReachTheDriverAndTheThirdIsAnswered) {
    telephones lines;
    controlled_process process(lines);
    for (char const* const seen : {"0:2=0 0:3=42 ", "0:2=0 0:3=42 1:2=0 1:3=42 "}) {
        process.send(protocol::reset_base_command{.command = 2});
        process.send(protocol::reset_base_command{.command = 3});
        auto const result = process.next<protocol::driver_result>();
        EXPECT_EQ(result.command, 3);
        EXPECT_EQ(result.result, 42);
        lines.mount().locked([&] { EXPECT_EQ(told(lines), seen); });
        process.open(0);
        process.put_on_line(0, 1);  // whose device is asked next
    }
}

TEST(Device, LinesOfTheDriverPipeBecomeReports) {
    std::string directory = testing::TempDir() + "fxsmedia-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    std::string const base = directory + "/fxs";
    for (char const* const digit : {"0", "1"})
        ASSERT_EQ(mkfifo((base + digit).c_str(), 0600), 0);
    controlled_process process(std::vector<std::string>{"--pipe", base});
    int const driver = open((base + "0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(driver, 0);
    struct {
        std::string written, reported;
    } const table[] = {{"HOOK 1 off\r\n", "HOOK 1 off"}, {"\n", ""}, {"A\r\nB\r\n", "A"}, {"C\r\n", "BC"}};
    for (auto const& [written, reported] : table) {
        ASSERT_EQ(write(driver, written.data(), written.size()), static_cast<ssize_t>(written.size()));
        EXPECT_EQ(process.next<protocol::driver_line>().text, reported);
    }
    close(driver);
    process.settle();
    std::filesystem::remove_all(directory);
}

TEST(Device, TheSignallingDeviceIsATransparentRelay) {
    int const line = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);  // the far side of a serial line
    ASSERT_EQ(grantpt(line) + unlockpt(line), 0);
    controlled_process process(std::vector<std::string>{"--tunnel", ptsname(line)});
    protocol::bytes said, relayed;
    for (int i = 0; i < 1500; i++)
        said.push_back(static_cast<std::uint8_t>(i * 7));
    ASSERT_EQ(write(line, said.data(), said.size()), 1500);
    while (relayed.size() < said.size() && !testing::Test::HasFailure()) {
        protocol::bytes const data = process.next<protocol::signal_data>().data;
        EXPECT_LE(data.size(), 1024u);
        relayed.insert(relayed.end(), data.begin(), data.end());
    }
    EXPECT_EQ(relayed, said);

    process.send(protocol::signal_command{.data = {{1, 2, 3}, {}, {13, 10, 0, 255}, {4}}});
    protocol::bytes heard(8);
    pollfd readable{line, POLLIN, 0};
    for (std::size_t n = 0; n < 8; n += static_cast<std::size_t>(read(line, &heard[n], 8 - n)))
        ASSERT_EQ(poll(&readable, 1, 20000), 1);
    EXPECT_EQ(heard, (protocol::bytes{1, 2, 3, 13, 10, 0, 255, 4}));

    close(line);
    process.send(protocol::signal_command{.data = {{1, 2, 3}}});
    process.expect_log("Could not write 3 bytes");
    EXPECT_EQ(process.open(4).call, 4) << "calls go on without the device";
}

}  // namespace
