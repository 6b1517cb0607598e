#pragma once

#include <cstdint>

#include "lib/callback_argument.h"
#include "lib/rtimestamp.h"
#include "lib/smap.h"

class timeout;

/// Key of the timeout queue: due time, then order of scheduling.
class timeout_ticket {
public:
    /// Sequence number of the newest ticket; incremented by every construction from a due time.
    static std::uint32_t next_id;

    explicit timeout_ticket(rtimestamp const& due_time) : due(due_time), id(++next_id) {}

    /// Earlier due time first; of equal ones the lower sequence number.
    bool operator<(timeout_ticket const& other) const;
    bool operator==(timeout_ticket const& other) const { return due == other.due && id == other.id; }

    rtimestamp get_due() const { return due; }

private:
    rtimestamp due;
    std::uint32_t id;
};

/// All pending timeouts in the order in which they fire. There is one, global_queue. It owns no timeout.
class timeout_queue : public smap<timeout_ticket, timeout*> {
public:
    static timeout_queue global_queue;

    /// Timeouts that outlive the queue at process exit are made idle.
    ~timeout_queue();

    iterator insert(rtimestamp const& due, timeout& t);
    /// Milliseconds until the first timeout is due, 0 when overdue, -1 when the queue is empty. The argument
    /// is accepted and ignored.
    int delay(bool) const;
    /// Fires the first timeout, whatever its due time; nothing when empty. The action is run from a copy, so
    /// it may reschedule or destroy its own timeout.
    void next();
};

/// An action scheduled for later, at most once at a time. Idle, or pending with exactly one queue entry.
class timeout {
public:
    timeout();
    /// A pending source schedules the copy as a separate entry at the same due time.
    timeout(timeout const& other);
    timeout& operator=(timeout const&) = delete;
    ~timeout() { clear(); }

    /// Schedules `action` in `delay` ticks (negative: now), replacing what was pending.
    void callback(long long const& delay, callback_argument const& action);
    /// Schedules `action` at `due`; the timeout must be idle.
    void insert(rtimestamp const& due, callback_argument const& action);
    /// Cancels.
    void clear();
    /// Becomes idle without touching the queue, which has already dropped the entry.
    void clear_pointer();
    /// Consistency hook; does nothing.
    void check() const {}

    callback_argument const& get_action() const { return action; }

private:
    callback_argument action;
    bool pending;
    timeout_queue::iterator entry;
};
