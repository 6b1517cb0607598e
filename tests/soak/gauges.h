#pragma once

#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/e2e/media_process.h"

using steady = std::chrono::steady_clock;

/// What a process uses, as /proc tells.
struct usage {
    long resident_kb = 0, peak_kb = 0, descriptors = 0;
    double cpu_s = 0;

    explicit usage(pid_t pid) {
        std::string const proc = "/proc/" + std::to_string(pid);
        std::ifstream status(proc + "/status"), stat(proc + "/stat");
        for (std::string word; status >> word;)
            if (word == "VmRSS:" || word == "VmHWM:")
                status >> (word == "VmRSS:" ? resident_kb : peak_kb);
        std::string field;
        for (int i = 1; stat >> field; i++)
            if (i == 14 || i == 15)  // user, system
                cpu_s += std::stod(field) / static_cast<double>(sysconf(_SC_CLK_TCK));
        std::error_code gone;
        descriptors = std::distance(std::filesystem::directory_iterator(proc + "/fd", gone), {});
    }
};

/// Round-robin priorities: of the process, and of its telephones, which are above it as an interrupt is.
constexpr int process_priority = 50, interrupt_priority = 60;
/// For the calling thread and those that it starts; 0: an ordinary one again. False without the right to it.
inline bool take_priority(int priority) {
    sched_param const parameters{priority};
    return sched_setscheduler(0, priority > 0 ? SCHED_RR : SCHED_OTHER, &parameters) == 0;
}

/// How late something was, again and again. One thread adds, any may look.
class lateness {
public:
    void add(steady::duration late) {
        for (std::size_t i = 0; i < limits_ms.size(); i++)
            counts[i] += late > std::chrono::milliseconds(limits_ms[i]);
        worst_us = std::max<long>(worst_us, late / std::chrono::microseconds(1));
    }
    unsigned above_10_ms() const { return counts[1]; }
    long worst_ms() const { return worst_us / 1000; }
    /// "120 over 2, 1 over 10, 0 over 20, 0 over 80, worst 10 ms"
    std::string text() const {
        std::string all;
        for (std::size_t i = 0; i < limits_ms.size(); i++)
            all += std::to_string(counts[i]) + " over " + std::to_string(limits_ms[i]) + ", ";
        return all + "worst " + std::to_string(worst_ms()) + " ms";
    }

private:
    static constexpr std::array limits_ms{2, 10, 20, 80};
    std::array<std::atomic<unsigned>, limits_ms.size()> counts{};
    std::atomic<long> worst_us{0};
};

/// Lets the telephones live in real time, a block every 10 ms, and measures beside it how late the machine itself is.
class line_clock {
public:
    line_clock(telephones& lines, bool real_time) {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            throw std::runtime_error("no socket pair");
        take_priority(real_time ? interrupt_priority : 0);
        ticking = every_tick([this, &lines](steady::time_point due) {
            auto const ticked = steady::now();
            clock.add(ticked - due);
            lines.mount().advance();
            lines.mount().settle(std::chrono::milliseconds(100));
            process.add(steady::now() - ticked);
        });
        echoing = std::jthread([this] {
            for (char byte; recv(ends[1], &byte, 1, 0) == 1 && send(ends[1], &byte, 1, MSG_NOSIGNAL) == 1;)
                continue;
        });
        take_priority(real_time ? process_priority : 0);
        waking = every_tick([this](steady::time_point due) {
            char byte = 0;
            for (int i = 0; i < exchanges; i++)
                if (send(ends[0], &byte, 1, MSG_NOSIGNAL) != 1 || recv(ends[0], &byte, 1, 0) != 1)
                    return;
            control.add(steady::now() - due);
        });
        take_priority(0);
    }
    ~line_clock() { shutdown(ends[0], SHUT_RDWR); }

    lateness clock;    ///< the telephones' own ticks
    lateness process;  ///< from a tick until the process has read and written all that it brought
    /// Of a thread with the process's priority that wakes up every 10 ms and then exchanges bytes with another, about as
    /// often as the process asks something of the file server of four lines.
    lateness control;

private:
    static constexpr auto tick = std::chrono::milliseconds(10);
    static constexpr int exchanges = 30;
    /// Late ticks are made up for.
    template <typename action>
    std::jthread every_tick(action act) {
        return std::jthread([act](std::stop_token const& stop) {
            for (auto due = steady::now() + tick; !stop.stop_requested(); due += tick) {
                std::this_thread::sleep_until(due);
                act(due);
            }
        });
    }
    int ends[2];
    std::jthread ticking, echoing, waking;
};
