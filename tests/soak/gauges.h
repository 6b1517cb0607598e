#pragma once

#include <fnmatch.h>
#include <sched.h>

#include <array>
#include <atomic>
#include <iostream>
#include <map>
#include <thread>

#include "tests/attack/attacker.h"

/// Round-robin priorities: of the process, and of its telephones, which are above it as an interrupt is.
constexpr int process_priority = 50, interrupt_priority = 60;
/// For the calling thread and those that it starts; 0: an ordinary one again. False without the right to it.
inline bool take_priority(int priority) {
    sched_param const parameters{priority};
    return sched_setscheduler(0, priority > 0 ? SCHED_RR : SCHED_OTHER, &parameters) == 0;
}

/// How late something was, again and again. One thread adds, any may look.
struct lateness {
    void add(steady::duration late) {
        for (std::size_t i = 0; i < limits_ms.size(); i++)
            counts[i] += late > std::chrono::milliseconds(limits_ms[i]);
        worst_ms = std::max<int>(worst_ms, static_cast<int>(late / 1ms));
    }
    unsigned above_10_ms() const { return counts[1]; }
    /// "120 over 2, 1 over 10, 0 over 20, 0 over 80, worst 10 ms"
    std::string text() const {
        std::string all;
        for (std::size_t i = 0; i < limits_ms.size(); i++)
            all += std::to_string(counts[i]) + " over " + std::to_string(limits_ms[i]) + ", ";
        return all + "worst " + std::to_string(worst_ms) + " ms";
    }
    static constexpr std::array limits_ms{2, 10, 20, 80};
    std::array<std::atomic<unsigned>, limits_ms.size()> counts{};
    std::atomic<int> worst_ms = 0;
};

/// Lets the telephones live in real time, a block every 10 ms, and measures beside it how late the machine itself is.
class line_clock {
public:
    line_clock(telephones& lines, bool real_time) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        take_priority(real_time ? interrupt_priority : 0);
        ticking = every_tick([this, &lines](steady::time_point due) {
            auto const ticked = steady::now();
            clock.add(ticked - due);
            lines.mount().advance();
            lines.mount().settle(100ms);
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
    /// Of a thread with the process's priority that wakes up every 10 ms and then exchanges bytes with another, about
    /// as often as the process asks something of the file server of four lines.
    lateness control;

private:
    static constexpr int exchanges = 30;
    /// Late ticks are made up for.
    template <typename action>
    std::jthread every_tick(action act) {
        return std::jthread([act](std::stop_token const& stop) {
            for (auto due = steady::now() + 10ms; !stop.stop_requested(); due += 10ms) {
                std::this_thread::sleep_until(due);
                act(due);
            }
        });
    }
    int ends[2];
    std::jthread ticking, echoing, waking;
};

/// Log lines of healthy calls, as shell patterns behind their level.
inline constexpr char const* explained_lines[] = {
    "8 rtp *", "8 rtcp *", "8 loop count *", "9 RTCP: *", "9 RTCP report: *", "9 Get RTCP-XR", "9 RTCP not enrypted",
    "9 received rtcp msg on tcp socket", "9 Trying to open ports * and *", "7 RTCP-XR has no SSRC on call ?",
    "7 Open RTP port * and RTCP port *", "7 Send codec local ? remote *", "7 Map codec ? to *",
    "7 Set channel ? for call ?", "7 Reset channel for call ?", "8 Close call ?", "7 Receiving *RTP from *",
    "5 SRTP Tx=* Rx=*", "6 RTCP-XR mode *", "6 Open *sdt?", "6 Close *sdt?", "7 Clear Tx", "7 Playback on channel ?",
    "7 Clear playback on channel ?", "7 Synth *", "5 reset base command 3", "5 Start session 127.0.0.1:*",
    // A network that loses and delays, a new SSRC with a new codec, a call that was off its line, an old key:
    "5 Burst begin: *", "5 Burst * end: *", "5 Resuming RTP playback", "5 Tuning to new SSRC",
    "7 jitter buffer deleted", "4 Dropped 10* SRTP packets with wrong MAC *",
    // A TCP peer that hangs up, strangers, a port that somebody else has:
    "7 RT*P connection to * closed", "8 !!!!!!!!!!! TCP error code  *", "8 tcp control",
    "8 need to wait for more data to arrive", "8 no rtp *", "8 TCP rec send tunnel cmd",
    "0 UDP*: bind() to port * failed"};

/// Takes every report of the process and asks of each why it came: what the calls of a soak don't explain is printed
/// and counted.
struct report_audit {
    void take(protocol::report const& report) {
        if (std::holds_alternative<protocol::heartbeat>(report)) {
            auto const now = steady::now();
            if (heartbeats++ > 0)
                longest_gap_s = std::max(longest_gap_s, std::chrono::duration<double>(now - last_beat).count());
            last_beat = now;
        } else if (auto const* const line = std::get_if<protocol::log_line>(&report)) {
            std::string const text = std::to_string(line->level) + " " + line->text;
            auto const pattern =
                std::ranges::find_if(explained_lines, [&](char const* p) { return fnmatch(p, text.c_str(), 0) == 0; });
            log_lines++;
            pattern != std::end(explained_lines) ? void(counts[*pattern]++) : complain(text);
        } else if (std::holds_alternative<protocol::driver_result>(report)) {
            answers++;
        } else if (!std::holds_alternative<protocol::rtcp_copy>(report) &&
                   !std::holds_alternative<protocol::new_ssrc>(report) &&
                   !std::holds_alternative<protocol::srtp_verified>(report) &&
                   !std::holds_alternative<protocol::tunnel_data>(report)) {
            complain("report of kind " + std::to_string(report.index()));
        }
    }
    void complain(std::string const& about) {
        if (unexplained++ < 50)
            std::cout << "UNEXPLAINED " << about.substr(0, 200) << std::endl;
    }

    unsigned heartbeats = 0, answers = 0, log_lines = 0, unexplained = 0;
    double longest_gap_s = 0;                ///< between two heartbeats
    std::map<std::string, unsigned> counts;  ///< of each kind of log line
    steady::time_point last_beat;
};
