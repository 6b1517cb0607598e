#include "sim/kernel.h"

#include <algorithm>
#include <cerrno>

namespace sim {

void kernel::at(std::int64_t ns, int token) {
    schedule_event(ns - time, {event::token, token, {}, {}, {}});
}

void kernel::schedule_event(std::int64_t delay, event&& e) {
    events.emplace(moment(time + std::max<std::int64_t>(delay, 0), scheduled++), std::move(e));
}

void kernel::happen(event& e) {
    descriptor* const d =
        e.what == event::token || e.what == event::arrival ? nullptr : of_stream(e.number < 0 ? -e.number : e.number);
    switch (e.what) {
        case event::token: around.wake(e.number); break;
        case event::arrival: arrive(e); break;
        case event::stream_open:
            if (d) {
                d->state = e.number > 0 ? descriptor::connected : descriptor::refused;
                d->room = stream_bytes;
            }
            break;
        case event::stream_in:
            if (d && d->state == descriptor::connected && !d->peer_closed)
                d->inbox += e.data;
            break;
        case event::stream_end:
            if (d)
                d->peer_closed = true;
            break;
        case event::stream_room:
            if (d && !d->stalled)
                d->room = std::min(stream_bytes, d->room + e.data.size());
            break;
    }
}

/// Lets what is due happen; else time passes to the next event, at most to `until`. False: it is `until`.
bool kernel::advance(std::int64_t until) {
    std::int64_t const first = events.empty() ? INT64_MAX : events.begin()->first.first;
    std::int64_t const tick = lines_open() ? next_tick : INT64_MAX;
    std::int64_t const next = std::min(first, tick);
    if (next > time) {
        if (time >= until)
            return false;
        time = std::min(next, until);
        return true;
    }
    if (tick <= first) {
        tick_lines();
    } else {
        event e = std::move(events.begin()->second);
        events.erase(events.begin());
        happen(e);
    }
    return true;
}

bool kernel::readable(descriptor const& d) const {
    switch (d.what) {
        case kind::udp: return !d.datagrams.empty();
        case kind::stream: return d.state == descriptor::refused || d.peer_closed || !d.inbox.empty();
        case kind::line: return lines[d.number].hung_up || lines[d.number].captured.size() >= block_bytes;
        case kind::pipe_in: return !d.inbox.empty();
        case kind::signal: return signal_hung_up || !d.inbox.empty();
        default: return false;
    }
}

bool kernel::writable(descriptor const& d) const {
    return d.what != kind::line || lines[d.number].playing.size() + block_bytes <= play_bytes;
}

int kernel::select(int highest, fd_set* read, fd_set* write, std::int64_t limit) {
    fd_set const wanted_read = *read, wanted_write = *write;
    std::int64_t const deadline = limit < 0 ? INT64_MAX : time + limit;
    for (;;) {
        while (!events.empty() && events.begin()->first.first <= time)
            advance(time);
        while (lines_open() && next_tick <= time)
            advance(time);
        FD_ZERO(read);
        FD_ZERO(write);
        int ready = 0;
        for (int fd = first_fd; fd < highest; fd++) {
            descriptor const& d = table[fd - first_fd];
            bool const to_read = FD_ISSET(fd, &wanted_read), to_write = FD_ISSET(fd, &wanted_write);
            if ((to_read || to_write) && d.what == kind::none)
                complain("a closed descriptor was waited for");
            if (to_read && readable(d))
                FD_SET(fd, read), ready++;
            if (to_write && writable(d))
                FD_SET(fd, write), ready++;
        }
        if (ready > 0 || time >= deadline)
            return ready;
        if (time >= run_until)
            return -EINTR;
        advance(std::min(deadline, run_until));
    }
}

int kernel::wait_readable(int fd, std::int64_t limit) {
    std::int64_t const deadline = limit < 0 ? INT64_MAX : time + limit;
    while (!readable(table[fd - first_fd]))
        if (time >= deadline || (!lines_open() && events.empty()))
            return 0;
        else
            advance(deadline);
    return 1;
}

}  // namespace sim
