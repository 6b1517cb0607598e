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

/// What the driver was told about the LED, oldest first: "on 0 off 0 " with the line whose device was used.
std::string led_events(telephones& lines) {
    return lines.mount().locked([&] {
        std::string all;
        for (fxsline::line_event const& event : lines.events())
            if (event.kind == fxsline::event_kind::led_on || event.kind == fxsline::event_kind::led_off)
                all += (event.kind == fxsline::event_kind::led_on ? "on " : "off ") +
                       std::to_string(event.line) + " ";
        return all;
    });
}

long led_event_count(telephones const& lines) {
    return std::count_if(lines.events().begin(), lines.events().end(), [](fxsline::line_event const& event) {
        return event.kind == fxsline::event_kind::led_on || event.kind == fxsline::event_kind::led_off;
    });
}

TEST(Device, LedBlinksOnTheOpenLineUntilItIsSwitchedOff) {
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.open(0);
    process.put_on_line(0, 2);
    ASSERT_TRUE(lines.wait_for_open(1));
    process.send(protocol::encode(protocol::led_command{.pattern = 2}));
    ASSERT_TRUE(lines.mount().wait_until([&] { return led_event_count(lines) >= 10; }));
    EXPECT_TRUE(led_events(lines).starts_with("on 2 off 2 on 2 off 2 on 2 off 2 on 2 off 2 on 2 off 2 "))
        << led_events(lines);
    process.send(protocol::encode(protocol::led_command{.pattern = 3}));
    process.settle();
    process.send(protocol::encode(protocol::led_command{}));
    process.settle();
    std::string const until_off = led_events(lines);
    EXPECT_TRUE(until_off.ends_with("off 2 "));
    EXPECT_FALSE(lines.mount().locked([&] { return lines.bank().led(); }));
    process.client.kept().clear();
    for (int beat = 0; beat < 2; beat++)
        ASSERT_TRUE(process.client.wait_for<protocol::heartbeat>(patience));
    EXPECT_EQ(led_events(lines), until_off) << "dark for a second and more";
}

TEST(Device, LedOpensTheFirstDeviceForEachRequestWhenNoneIsOpen) {
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    process.send(protocol::encode(protocol::led_command{.pattern = 3}));
    ASSERT_TRUE(lines.mount().wait_until([&] { return led_event_count(lines) >= 4; }));
    EXPECT_TRUE(led_events(lines).starts_with("on 0 off 0 on 0 off 0 "));
    process.send(protocol::encode(protocol::led_command{}));
    process.settle();
    EXPECT_TRUE(lines.wait_for_open(0)) << "and closes it again";
}

TEST(Device, BaseCommandsReachTheDriverAndTheThirdIsAnswered) {
    telephones lines({});
    controlled_process process({"--tdm", lines.tdm_path()});
    for (int const open_line : {-1, 1}) {
        if (open_line >= 0) {
            process.open(0);
            process.put_on_line(0, static_cast<std::uint16_t>(open_line));
            ASSERT_TRUE(lines.wait_for_open(1));
        }
        constexpr std::uint16_t commands[] = {2, 3};
        for (std::uint16_t const command : commands)
            process.send(protocol::encode(protocol::reset_base_command{.command = command}));
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

class directory_of_pipes {
public:
    directory_of_pipes() {
        std::string name = testing::TempDir() + "fxsmedia-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        directory = name;
        for (char const* const digit : {"0", "1"})
            EXPECT_EQ(mkfifo((base() + digit).c_str(), 0600), 0);
    }
    ~directory_of_pipes() { std::filesystem::remove_all(directory); }
    std::string base() const { return (directory / "fxs").string(); }

private:
    std::filesystem::path directory;
};

TEST(Device, LinesOfTheDriverPipeBecomeReports) {
    directory_of_pipes pipes;
    controlled_process process({"--pipe", pipes.base()});
    int const driver = open((pipes.base() + "0").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(driver, 0);
    struct {
        std::string written;
        std::string reported;
    } const table[] = {
        {"HOOK 1 off\r\n", "HOOK 1 off"},
        {"\n", ""},
        {"A\r\nB\r\n", "A"},
        {"C\r\n", "BC"},
        {"last\n", "last"},
    };
    for (auto const& [written, reported] : table) {
        ASSERT_EQ(write(driver, written.data(), written.size()), static_cast<ssize_t>(written.size()));
        auto const line = process.client.wait_for<protocol::driver_line>(patience);
        ASSERT_TRUE(line.has_value());
        EXPECT_EQ(line->text, reported);
    }
    close(driver);
    process.settle();
}

/// The far side of a serial line.
class serial_line {
public:
    serial_line() : fd(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(grantpt(fd), 0);
        EXPECT_EQ(unlockpt(fd), 0);
    }
    ~serial_line() { hang_up(); }
    std::string path() const { return ptsname(fd); }
    void say(protocol::bytes const& bytes) {
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    protocol::bytes hear(std::size_t n) {
        protocol::bytes all;
        pollfd readable{fd, POLLIN, 0};
        while (all.size() < n && poll(&readable, 1, 20000) == 1) {
            std::uint8_t buffer[1024];
            ssize_t const got = read(fd, buffer, sizeof buffer);
            if (got <= 0)
                break;
            all.insert(all.end(), buffer, buffer + got);
        }
        return all;
    }
    void hang_up() {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

private:
    int fd;
};

TEST(Device, TheSignallingDeviceIsATransparentRelay) {
    serial_line line;
    controlled_process process({"--tunnel", line.path()});
    protocol::bytes said;
    for (int i = 0; i < 1500; i++)
        said.push_back(static_cast<std::uint8_t>(i * 7));
    line.say(said);
    protocol::bytes relayed;
    while (relayed.size() < said.size()) {
        auto const message = process.client.wait_for<protocol::signal_data>(patience);
        ASSERT_TRUE(message.has_value());
        EXPECT_LE(message->data.size(), 1024u);
        relayed.insert(relayed.end(), message->data.begin(), message->data.end());
    }
    EXPECT_EQ(relayed, said);

    process.send(protocol::encode(protocol::signal_command{.data = {{1, 2, 3}, {}, {13, 10, 0, 255}, {4}}}));
    EXPECT_EQ(line.hear(8), (protocol::bytes{1, 2, 3, 13, 10, 0, 255, 4}));

    line.hang_up();
    process.send(protocol::encode(protocol::signal_command{.data = {{1, 2, 3}}}));
    auto const lost = process.client.wait_for<protocol::log_line>(
        patience, [](protocol::log_line const& logged) { return logged.level == 3; });
    ASSERT_TRUE(lost.has_value());
    EXPECT_EQ(lost->text, "Could not write 3 bytes");
    EXPECT_EQ(process.open(4).call, 4) << "calls go on without the device";
}

}  // namespace
