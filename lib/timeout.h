#pragma once

#include <cstdint>

#include "lib/rtimestamp.h"
#include "lib/smap.h"
#include "lib/str.h"

/// A stored action: a plain function and the arguments it is called with, up to three strings or one integer.
/// The strings share their buffers with the caller's, so binding copies nothing. The called function returns
/// nothing to anybody.
class callback_argument {
public:
    callback_argument();
    explicit callback_argument(void (*function)());
    callback_argument(void (*function)(str const&), str const& a);
    callback_argument(void (*function)(int), int n);
    callback_argument(void (*function)(str const&, str const&), str const& a, str const& b);
    callback_argument(void (*function)(str const&, int), str const& a, int n);
    callback_argument(void (*function)(str const&, str const&, str const&), str const& a, str const& b, str const& c);
    callback_argument(callback_argument const& other);
    ~callback_argument();
    callback_argument& operator=(callback_argument const& other);

    /// Runs the action; an empty one does nothing.
    void call() const;

private:
    enum class kind_of_call { none, plain, text, number, two_texts, text_and_number, three_texts };

    using generic_function = void (*)();

    callback_argument(kind_of_call what, generic_function how, str const& a, str const& b, str const& c, int n);

    kind_of_call kind;
    generic_function function;
    str s1;
    str s2;
    str s3;
    int n;
};

/// Live callback_argument objects: a leak indicator.
extern int callback_objects;

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
