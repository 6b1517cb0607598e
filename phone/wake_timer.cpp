#include "phone/wake_timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "phone/libre.h"

namespace fxsphone {

wake_timer::~wake_timer() {
    if (fd < 0)
        return;
    fd_close(fd);
    close(fd);
}

void wake_timer::expired(int, void* arg) {
    auto const& self = *static_cast<wake_timer*>(arg);
    std::uint64_t times = 0;
    if (read(self.fd, &times, sizeof times) > 0)
        self.due();
}

std::string wake_timer::start() {
    fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    int const failed = fd < 0 ? errno : fd_listen(fd, FD_READ, expired, this);
    return failed == 0 ? "" : std::strerror(failed);
}

void wake_timer::wake_in(std::int64_t wait_ms) const {
    wait_ms = std::max<std::int64_t>(0, wait_ms);
    itimerspec when = {};
    when.it_value.tv_sec = static_cast<time_t>(wait_ms / 1000);
    when.it_value.tv_nsec = static_cast<long>(wait_ms % 1000) * 1'000'000 + 1;  // all zero would stop the timer
    timerfd_settime(fd, 0, &when, nullptr);
}

}  // namespace fxsphone
