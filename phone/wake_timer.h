#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace fxsphone {

/// Wakes libre's main loop at a time of the monotonic clock. libre's own timers follow the calendar clock, which may be
/// stepped.
class wake_timer {
public:
    explicit wake_timer(std::function<void()> when_due) : due(std::move(when_due)) {}
    ~wake_timer();
    wake_timer(wake_timer const&) = delete;

    /// To be called in the thread of the main loop. An empty text, or what went wrong.
    std::string start();
    /// Calls `when_due` in so many ms instead of whenever was said before; below 0: at once.
    void wake_in(std::int64_t wait_ms) const;

private:
    static void expired(int, void* arg);

    std::function<void()> due;
    int fd = -1;  ///< timerfd
};

}  // namespace fxsphone
