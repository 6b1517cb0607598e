#include <list>
#include <map>

#include "lib/slist.h"
#include "lib/smap.h"
#include "lib/svector.h"
#include "tests/support/seed.h"

namespace {

/// An element that knows whether it stands where it was built; those that live are counted, the dead noted.
struct item {
    static inline int live = 0;
    static inline std::vector<int> destroyed;

    item(int v = -1) : self(this), value(v) { ++live; }
    item(item const& other) : item(other.value) { EXPECT_EQ(other.self, &other); }
    item& operator=(item const&) = delete;
    ~item() {
        EXPECT_EQ(self, this);
        self = nullptr;
        --live;
        destroyed.push_back(value);
    }
    auto operator<=>(item const& other) const { return value <=> other.value; }
    bool operator==(item const& other) const { return value == other.value; }

    item const* self;
    int value;
};

/// The subject holds what the standard container does, in the same order.
void expect_same(auto const& subject, auto const& model) {
    ASSERT_EQ(subject.size(), static_cast<int>(model.size()));
    ASSERT_EQ(subject.empty(), model.empty());
    auto m = model.begin();
    for (auto i = subject.begin(); i != subject.end(); ++i, ++m)
        if constexpr (requires { m->second; })
            ASSERT_TRUE((*i).first == m->first && (*i).second == m->second);
        else
            ASSERT_EQ((*i).value, *m);
}

/// Many operations on both from each seed; `operate` gets an element's value and a number below 100.
template <typename subject, typename standard>
void compare(int items_each, auto const& operate) {
    seed_range{1, 5}.roll([&](dice& random) {
        subject tested, other;
        standard model;
        for (int step = 0; step < 25000 && !testing::Test::HasFatalFailure(); ++step) {
            int const choice = random.below(100);
            if (choice == 0 && random.chance(40)) {
                tested.clear();
                model.clear();
            } else if (choice == 1) {
                tested = *&tested;
                other = tested;
                tested = subject(other);
            } else {
                operate(random, choice, tested, model);
            }
            expect_same(tested, model);
            ASSERT_EQ(item::live, items_each * (tested.size() + other.size()));
        }
    });
    EXPECT_EQ(item::live, 0);
}

TEST(smap, random_operations_like_std_map) {
    using item_map = smap<item, item>;
    compare<item_map, std::map<int, int>>(2, [](dice& random, int choice, item_map& map, auto& model) {
        int const key = random.below(60), value = random.below(1000);
        auto const at = map.find(key);
        ASSERT_EQ(at != map.end(), model.count(key) == 1);
        if (choice < 25 && at != map.end()) {
            map.erase(at);
            model.erase(key);
        } else if (choice < 50) {
            ASSERT_EQ(map.erase(item(key)), model.erase(key) == 1);
        } else if (choice < 88) {
            ASSERT_EQ(map.insert(key, value)->second.value, value);
            model[key] = value;
        } else {
            ASSERT_EQ(map[key].value, model.insert({key, -1}).first->second);
        }
    });
}

TEST(slist, random_operations_like_std_list) {
    compare<slist<item>, std::list<int>>(1, [](dice& random, int choice, slist<item>& list, auto& model) {
        int const value = random.below(1000), n = random.below(std::max(list.size(), 1));
        if (choice < 28) {
            ASSERT_EQ(list.push_back(value)->value, value);
            model.push_back(value);
        } else if (choice < 50) {
            ASSERT_EQ((*list.push_front(value)).value, value);
            model.push_front(value);
        } else if (choice < 80 || model.empty()) {
            bool const front = choice < 65;
            front ? list.pop_front() : list.pop_back();
            if (!model.empty())
                front ? model.pop_front() : model.pop_back();
        } else {
            auto at = list.begin();
            for (int i = 0; i < n; ++i)
                ++at;
            list.erase(at);
            model.erase(std::next(model.begin(), n));
        }
        slist<item> const& view = list;
        ASSERT_TRUE(model.empty() || (view.front().value == model.front() && view.back().value == model.back()));
    });
}

/// Numbers itself in order of construction.
struct numbered : item {
    static inline int next = 0;
    numbered() : item(next++) {}
};

TEST(svector, resize_always_starts_anew) {
    svector<numbered> vector;
    item::destroyed.clear();
    vector.resize(3);
    EXPECT_EQ(reinterpret_cast<std::size_t const*>(&vector[0])[-1], 3u);
    vector.resize(8);
    EXPECT_EQ(std::exchange(item::destroyed, {}), (std::vector<int>{2, 1, 0}));
    EXPECT_TRUE(vector.size() == 8 && vector[0].value == 3 && vector[7].value == 10);
    EXPECT_TRUE(vector.valid(0) && vector.valid(7) && !vector.valid(-1) && !vector.valid(8));
    vector.resize(-1);
    EXPECT_EQ(std::exchange(item::destroyed, {}), (std::vector<int>{10, 9, 8, 7, 6, 5, 4, 3}));
    EXPECT_EQ(vector.size(), 0);
    vector.resize(2);
}

}  // namespace
