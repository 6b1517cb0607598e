#pragma once

#include <time.h>

#include <cstdint>

/// What a client tells its handler besides reports, and its settings.
namespace fxsmedia {

/// The process answers for the first time: open the calls.
struct session_started {};

/// The process does not answer any more, or has not answered from the beginning. Nothing can be sent until one of the
/// two next comes.
struct process_lost {
    bool refused = false;  ///< nothing listens on its port: it has ended
};

/// It answers again, or sends to this client again, and has kept its calls. Reports may have been missed.
struct process_resumed {};

/// It has started anew and knows no calls any more: open them again.
struct process_restarted {};

/// The process has carried out everything that was sent before confirm(token).
struct confirmed {
    int token = 0;
};

/// There was no answer in time, or the process was lost or restarted meanwhile.
struct timed_out {
    int tag = 0;  ///< protocol::cmd_open::tag or, for confirm(), protocol::cmd_session::tag
    int id = 0;   ///< the call (8: none of 0 to 7), or the token
};

/// CLOCK_MONOTONIC in ms.
inline std::int64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

struct client_settings {
    int log_level = 0;             ///< 0 to 9, see log_level_command
    int answer_timeout_ms = 1000;  ///< a process that takes longer counts as lost
    bool resync = true;            ///< a process that takes datagrams and does not answer is sent zeros, see client.h
    std::int64_t (*clock_ms)() = monotonic_ms;
};

}  // namespace fxsmedia
