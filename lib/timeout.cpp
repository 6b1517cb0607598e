#include "lib/timeout.h"

int callback_objects = 0;

namespace {

template <typename signature>
void (*generic(signature* function))() {
    return reinterpret_cast<void (*)()>(function);
}

}  // namespace

callback_argument::callback_argument(kind_of_call what, generic_function how, str const& a, str const& b, str const& c,
                                     int number)
    : kind(what), function(how), s1(a), s2(b), s3(c), n(number) {
    callback_objects++;
}

callback_argument::callback_argument() : callback_argument(kind_of_call::none, nullptr, str(), str(), str(), 0) {}

callback_argument::callback_argument(void (*f)()) : callback_argument(kind_of_call::plain, f, str(), str(), str(), 0) {}

callback_argument::callback_argument(void (*f)(str const&), str const& a)
    : callback_argument(kind_of_call::text, generic(f), a, str(), str(), 0) {}

callback_argument::callback_argument(void (*f)(int), int number)
    : callback_argument(kind_of_call::number, generic(f), str(), str(), str(), number) {}

callback_argument::callback_argument(void (*f)(str const&, str const&), str const& a, str const& b)
    : callback_argument(kind_of_call::two_texts, generic(f), a, b, str(), 0) {}

callback_argument::callback_argument(void (*f)(str const&, int), str const& a, int number)
    : callback_argument(kind_of_call::text_and_number, generic(f), a, str(), str(), number) {}

callback_argument::callback_argument(void (*f)(str const&, str const&, str const&), str const& a, str const& b,
                                     str const& c)
    : callback_argument(kind_of_call::three_texts, generic(f), a, b, c, 0) {}

callback_argument::callback_argument(callback_argument const& other)
    : callback_argument(other.kind, other.function, other.s1, other.s2, other.s3, other.n) {}

callback_argument::~callback_argument() {
    callback_objects--;
}

callback_argument& callback_argument::operator=(callback_argument const& other) {
    if (this == &other)
        return *this;
    kind = other.kind;
    function = other.function;
    s1 = other.s1;
    s2 = other.s2;
    s3 = other.s3;
    n = other.n;
    return *this;
}

void callback_argument::call() const {
    switch (kind) {
        case kind_of_call::none: break;
        case kind_of_call::plain: function(); break;
        case kind_of_call::text: reinterpret_cast<void (*)(str const&)>(function)(s1); break;
        case kind_of_call::number: reinterpret_cast<void (*)(int)>(function)(n); break;
        case kind_of_call::two_texts: reinterpret_cast<void (*)(str const&, str const&)>(function)(s1, s2); break;
        case kind_of_call::text_and_number: reinterpret_cast<void (*)(str const&, int)>(function)(s1, n); break;
        case kind_of_call::three_texts:
            reinterpret_cast<void (*)(str const&, str const&, str const&)>(function)(s1, s2, s3);
            break;
    }
}

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
