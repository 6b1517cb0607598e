#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "tests/e2e/media_process.h"
#include "tests/support/signals.h"

/// What attackers share: sockets, threads that never tire, figures of the process under attack.

using namespace std::chrono_literals;

constexpr auto patience = 20s;
constexpr protocol::codec_choice linear{0, 100};
constexpr protocol::codec_choice g729{3, 18};

inline int ms_since(std::chrono::steady_clock::time_point begin) {
    return static_cast<int>((std::chrono::steady_clock::now() - begin) / 1ms);
}

/// A UDP socket of 127.0.0.1 that sends to one port.
class stranger {
public:
    explicit stranger(std::uint16_t port) : fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    ~stranger() { close(fd); }
    stranger(stranger const&) = delete;
    void send(std::string const& datagram) const { (void)!write(fd, datagram.data(), datagram.size()); }

private:
    int fd;
};

/// Does the same over and over in a thread of its own, as long as it lives.
class tireless {
public:
    explicit tireless(std::function<void()> act)
        : thread([this, act = std::move(act)] {
              for (; !over; times++)
                  act();
          }) {}
    ~tireless() {
        over = true;
        thread.join();
    }
    tireless(tireless const&) = delete;
    std::atomic<long> times = 0;

private:
    std::atomic<bool> over = false;
    std::thread thread;  // last: it uses the others
};

/// A number of /proc/PID/status: "VmRSS", in kB.
inline long status_of(pid_t pid, std::string const& name) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;)
        if (word == name + ":" && status >> word)
            return std::stol(word);
    return -1;
}

/// AddressSanitizer reserves terabytes and rounds each block up.
inline bool is_sanitized(pid_t pid) {
    return status_of(pid, "VmSize") > 1'000'000'000;
}

/// Processor time so far in ms, user and system.
inline long processor_ms(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string word;
    for (int field = 1; field < 14; field++)  // the name, field 2, has no blank
        stat >> word;
    long user = 0, system = 0;
    stat >> user >> system;
    return (user + system) * 1000 / sysconf(_SC_CLK_TCK);
}

/// Says something else every time; what the process logs of it at level 7 is looked for. The ms until then, -1 for
/// never. Said again every 50 ms, because a flooded socket drops datagrams.
inline int answer_ms(controlled_process& asked, std::chrono::milliseconds limit = patience) {
    static unsigned number = 0;
    number++;
    protocol::codec_choice const said{static_cast<std::uint8_t>(number),
                                      static_cast<std::uint8_t>(number >> 8 & 127)};
    std::string const text =
        "Map codec " + std::to_string(said.codec) + " to " + std::to_string(said.payload_type);
    protocol::bytes datagram = protocol::encode(protocol::log_level_command{.level = 7});
    protocol::bytes const mapping = protocol::encode(protocol::media_command{.call = 99, .map = {said}});
    datagram.insert(datagram.end(), mapping.begin(), mapping.end());
    auto const begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begin < limit) {
        asked.client.kept().clear();
        asked.send(datagram);
        if (asked.client.wait_for<protocol::log_line>(
                50ms, [&](protocol::log_line const& line) { return line.text == text; }))
            return ms_since(begin);
    }
    return -1;
}

/// Four telephones that speak all the time.
inline std::unique_ptr<telephones> speakers() {
    std::vector<fxsline::speech> says;
    for (unsigned line = 0; line < 4; line++)
        says.push_back(fxsline::speech::recording(signals::speech_like(8000, 8000, 31 + line), true, "test"));
    return std::make_unique<telephones>(std::move(says));
}

/// Whether a telephone hears anything in the next second.
inline bool hears(telephones& lines, unsigned line) {
    auto const from = static_cast<std::ptrdiff_t>(lines.heard(line).size());
    lines.run(100);
    return std::any_of(lines.heard(line).begin() + from, lines.heard(line).end(),
                       [](int s) { return s != 0; });
}

/// Line devices of the test's choice: the value of --tdm, and what stands behind its digits.
class line_links {
public:
    line_links() : directory(testing::TempDir() + "fxs-attack-XXXXXX") {
        EXPECT_NE(mkdtemp(directory.data()), nullptr);
    }
    ~line_links() { std::filesystem::remove_all(directory); }
    line_links(line_links const&) = delete;
    std::string tdm_path() const { return directory + "/sdt"; }
    void link(int line, std::string const& device) const {
        std::filesystem::create_symlink(device, tdm_path() + std::to_string(line));
    }

private:
    std::string directory;
};

/// A pseudo-terminal in raw mode whose far side is the test.
class terminal {
public:
    terminal() : far_side(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(grantpt(far_side) + unlockpt(far_side), 0);
        near_side = open(device().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);  // keeps the mode
        termios settings{};
        cfmakeraw(&settings);
        EXPECT_EQ(tcsetattr(near_side, TCSANOW, &settings), 0);
    }
    ~terminal() { hang_up(); }
    terminal(terminal const&) = delete;
    std::string device() const { return ptsname(far_side); }
    void say(std::string const& bytes) const {
        EXPECT_EQ(write(far_side, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    /// The next n bytes; waits for them.
    std::string hear(std::size_t n) const {
        std::string bytes(n, '\0');
        pollfd waits{far_side, POLLIN, 0};
        for (std::size_t got = 0; got < n;) {
            ssize_t const more = poll(&waits, 1, 20000) == 1 ? read(far_side, &bytes[got], n - got) : -1;
            if (more <= 0)
                return bytes.substr(0, got);
            got += static_cast<std::size_t>(more);
        }
        return bytes;
    }
    void hang_up() {
        for (int* const fd : {&near_side, &far_side})
            if (*fd >= 0)
                close(std::exchange(*fd, -1));
    }

private:
    int far_side;
    int near_side = -1;
};
