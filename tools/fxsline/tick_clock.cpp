#include "tools/fxsline/tick_clock.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include "tools/fxsline/audio_format.h"

namespace fxsline {

tick_clock::tick_clock() : timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    itimerspec period{};
    period.it_interval.tv_nsec = tick_ms * 1000000L;
    period.it_value = period.it_interval;
    timerfd_settime(timer, 0, &period, nullptr);
}

tick_clock::~tick_clock() {
    close(timer);
}

uint64_t tick_clock::due() {
    uint64_t ticks = 0;
    return read(timer, &ticks, sizeof ticks) == sizeof ticks ? ticks : 0;
}

}  // namespace fxsline
