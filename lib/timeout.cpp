#include "lib/timeout.h"

std::uint32_t timeout_ticket::next_id = 0;
timeout_queue timeout_queue::global_queue;

bool timeout_ticket::operator<(timeout_ticket const& other) const {
    if (due == other.due)
        return id < other.id;
    return due < other.due;
}

timeout_queue::~timeout_queue() {
    for (iterator i = begin(); i != end(); ++i)
        i->second->clear_pointer();
}

timeout_queue::iterator timeout_queue::insert(rtimestamp const& due, timeout& t) {
    return smap::insert(timeout_ticket(due), &t);
}

int timeout_queue::delay(bool) const {
    if (empty())
        return -1;
    int const ms = begin()->first.get_due().diff_ms(rtimestamp::now());
    return ms < 0 ? 0 : ms;
}

void timeout_queue::next() {
    if (empty())
        return;
    iterator const first = begin();
    callback_argument const action = first->second->get_action();
    first->second->clear_pointer();
    erase(first);
    action.call();
}

timeout::timeout() : pending(false), entry(timeout_queue::global_queue.end()) {}

timeout::timeout(timeout const& other)
    : action(other.action), pending(false), entry(timeout_queue::global_queue.end()) {
    if (other.pending)
        insert(other.entry->first.get_due(), other.action);
}

void timeout::callback(long long const& delay, callback_argument const& what) {
    clear();
    rtimestamp due = rtimestamp::now();
    if (delay > 0)
        due += delay;
    insert(due, what);
}

void timeout::insert(rtimestamp const& due, callback_argument const& what) {
    entry = timeout_queue::global_queue.insert(due, *this);
    pending = true;
    action = what;
}

void timeout::clear() {
    if (!pending)
        return;
    timeout_queue::global_queue.erase(entry);
    clear_pointer();
}

void timeout::clear_pointer() {
    pending = false;
    entry = timeout_queue::global_queue.end();
}
