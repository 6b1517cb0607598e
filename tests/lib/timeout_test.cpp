#include "lib/timeout.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/manual_clock.h"
#include "tests/support/seed.h"

namespace {

std::vector<std::string> calls;
std::unique_ptr<timeout> subject;

timeout_queue& queue = timeout_queue::global_queue;

void note(int n) {
    calls.push_back(std::to_string(n));
}

std::vector<std::string> take_calls() {
    return std::exchange(calls, {});
}

class timeouts : public testing::Test {
protected:
    timeouts() : clock(0xFFFFFF00), objects_before(callback_objects) { calls.clear(); }
    ~timeouts() override {
        subject.reset();
        EXPECT_TRUE(queue.empty());
        EXPECT_EQ(callback_objects, objects_before) << "callback objects leaked";
    }
    manual_clock clock;
    int objects_before;
};

void destroy_subject(str const& text) {
    subject.reset();
    calls.push_back("gone " + to_string(text));
}

TEST_F(timeouts, carry_every_kind_of_arguments) {
    str const a("a"), b("b"), c("c");
    callback_argument const table[] = {
        callback_argument(),
        callback_argument([] { note(0); }),
        {[](str const& x) { calls.push_back(to_string(x)); }, a},
        {note, 7},
        {[](str const& x, str const& y) { calls.push_back(to_string(x + y)); }, a, b},
        {[](str const& x, int n) { calls.push_back(to_string(x) + std::to_string(n)); }, a, 8},
        {[](str const& x, str const& y, str const& z) { calls.push_back(to_string(x + y + z)); }, a, b, c},
    };
    for (callback_argument const& action : table) {
        callback_argument copy;
        copy = action;
        copy.call();
    }
    EXPECT_EQ(take_calls(), (std::vector<std::string>{"0", "a", "7", "ab", "a8", "abc"}));
}

TEST_F(timeouts, an_action_may_reschedule_or_destroy_its_own_timeout) {
    auto const reschedule = +[](str const& text) {
        subject->callback(rtimestamp::ms2ticks(30), callback_argument(destroy_subject, text));
    };
    subject = std::make_unique<timeout>();
    subject->callback(0, callback_argument(reschedule, str("with its own string")));
    queue.next();
    EXPECT_EQ(queue.delay(true), 30);
    queue.next();
    EXPECT_EQ(take_calls(), (std::vector<std::string>{"gone with its own string"}));
}

// Random operations against an ordered multimap, in which equal keys keep the order of insertion too.
class queue_model {
public:
    explicit queue_model(dice& source) : random(source) {}

    void step(manual_clock& clock) {
        int const i = random.below(slots);
        switch (random.below(8)) {
            case 0:
            case 1:
            case 2: schedule(i); break;
            case 3: cancel(i); break;
            case 4: clock.advance_ms(10 * static_cast<unsigned>(random.below(8))); break;
            case 5: copy(i, random.below(slots)); break;
            default: fire(); break;
        }
        ASSERT_EQ(queue.size(), static_cast<int>(pending.size()));
        ASSERT_EQ(queue.delay(true),
                  pending.empty() ? -1 : std::max(pending.begin()->first - now(), 0LL) / 1000000);
    }

private:
    static constexpr int slots = 24;
    static long long now() { return rtimestamp::now().diff_ticks(rtimestamp()); }

    void forget(int i) {
        std::erase_if(pending, [i](auto const& entry) { return entry.second.first == i; });
    }
    void cancel(int i) {
        forget(i);
        if (random.chance(50))
            all[i].reset();
        else if (all[i])
            all[i]->clear();
    }
    void schedule(int i) {
        if (!all[i])
            all[i] = std::make_unique<timeout>();
        forget(i);
        long long const delay = 10000000LL * random.between(-3, 20);
        pending.emplace(now() + std::max(delay, 0LL), std::pair(i, ++label));
        all[i]->callback(delay, callback_argument(note, label));
    }
    void copy(int from, int to) {
        if (from == to || !all[from])
            return;
        forget(to);
        all[to] = std::make_unique<timeout>(*all[from]);
        for (auto const& [due, who] : std::multimap(pending))
            if (who.first == from)
                pending.emplace(due, std::pair(to, who.second));
    }
    void fire() {
        std::vector<std::string> expected;
        if (!pending.empty()) {
            expected.push_back(std::to_string(pending.begin()->second.second));
            pending.erase(pending.begin());
        }
        queue.next();
        ASSERT_EQ(take_calls(), expected);
    }

    dice& random;
    int label = 0;
    std::unique_ptr<timeout> all[slots];
    std::multimap<long long, std::pair<int, int>> pending;  // due time: slot, label of its action
};

TEST_F(timeouts, random_operations_agree_with_an_ordered_map) {
    seed_range{1, 20}.roll([&](dice& random) {
        queue_model model(random);
        for (int i = 0; i < 2000 && !HasFatalFailure(); i++)
            model.step(clock);
    });
}

}  // namespace
