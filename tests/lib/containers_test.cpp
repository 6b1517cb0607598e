#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "lib/slist.h"
#include "lib/smap.h"
#include "lib/str.h"
#include "lib/svector.h"
#include "tests/lib/pool_check.h"
#include "tests/support/seed.h"

namespace {

/// An element that counts how many live, knows whether it stands where it was built, and keeps a journal.
struct item {
    static inline int live = 0;
    static inline std::vector<int> copied, destroyed;

    item(int v = -1) : self(this), value(v) { ++live; }
    item(item const& other) : self(this), value(other.value) {
        EXPECT_EQ(other.self, &other);
        ++live;
        copied.push_back(value);
    }
    item& operator=(item const&) = delete;
    ~item() {
        EXPECT_EQ(self, this);
        self = nullptr;
        --live;
        destroyed.push_back(value);
    }
    bool operator<(item const& other) const { return value < other.value; }
    bool operator==(item const& other) const { return value == other.value; }

    item const* self;
    int value;
};

std::vector<int> take(std::vector<int>& journal) {
    return std::exchange(journal, {});
}

using item_map = smap<item, item>;

void expect_same(item_map const& map, std::map<int, int> const& model) {
    ASSERT_EQ(map.size(), static_cast<int>(model.size()));
    ASSERT_EQ(map.empty(), model.empty());
    auto m = model.begin();
    for (auto i = map.begin(); i != map.end(); ++i, ++m) {
        ASSERT_NE(m, model.end());
        ASSERT_EQ(i->first.value, m->first);
        ASSERT_EQ(i->second.value, m->second);
    }
    ASSERT_EQ(m, model.end());
}

void random_map_operations(unsigned seed) {
    SCOPED_TRACE(seed_trace(seed));
    std::mt19937 random(seed);
    {
        item_map maps[2];
        std::map<int, int> models[2];
        for (int step = 0; step < 20000; ++step) {
            auto const which = random() % 2;
            item_map& map = maps[which];
            std::map<int, int>& model = models[which];
            int const key = static_cast<int>(random() % 60), value = static_cast<int>(random() % 1000);
            switch (random() % 64) {
                case 0: map.clear(), model.clear(); break;
                case 1: map = maps[1 - which], model = models[1 - which]; break;
                case 2: ASSERT_NO_FATAL_FAILURE(expect_same(item_map(map), model)); break;
                case 3: map = *&map; break;
                default:
                    if (random() % 2) {
                        auto const at = map.find(key);
                        ASSERT_EQ(at != map.end(), model.erase(key) == 1);
                        random() % 2 && at != map.end() ? map.erase(at) : void(map.erase(item(key)));
                    } else if (random() % 4) {
                        ASSERT_EQ(map.insert(key, value)->second.value, value);
                        model[key] = value;
                    } else {
                        ASSERT_EQ(map[key].value, model.insert({key, -1}).first->second);
                    }
            }
            ASSERT_NO_FATAL_FAILURE(expect_same(map, model));
            ASSERT_EQ(item::live, 2 * (maps[0].size() + maps[1].size()));
        }
    }
    EXPECT_EQ(item::live, 0);
    take(item::copied);
    take(item::destroyed);
}

TEST(smap, random_operations_like_std_map) {
    seed_range{1, 5}.for_each(random_map_operations);
}

// Every shape of a tree of six, each of its nodes taken out first, then all others in order of insertion.
TEST(smap, erase_keeps_order_in_every_shape) {
    std::vector<int> order{1, 2, 3, 4, 5, 6};
    auto const used = blocks_in_use();
    do {
        for (int first = 1; first <= 6; ++first) {
            smap<int, int> map;
            for (int key : order)
                map.insert(key, 10 * key);
            std::vector<int> left{1, 2, 3, 4, 5, 6}, erasing{first};
            erasing.insert(erasing.end(), order.begin(), order.end());
            for (int key : erasing) {
                ASSERT_EQ(map.erase(key), std::erase(left, key) == 1);
                auto expected = left.begin();
                for (auto const& [k, v] : map) {
                    ASSERT_EQ(k, *expected++);
                    ASSERT_EQ(v, 10 * k);
                }
                ASSERT_EQ(expected, left.end());
            }
        }
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(blocks_in_use(), used);
}

TEST(smap, order_of_copying_and_destroying) {
    {
        item_map map;
        for (int key : {4, 2, 6, 1, 3, 5, 7})
            map.insert(key, key + 100);
        take(item::copied);
        item_map const copy(map);
        EXPECT_EQ(take(item::copied),
                  (std::vector<int>{4, 104, 2, 102, 1, 101, 3, 103, 6, 106, 5, 105, 7, 107}));
        take(item::destroyed);
        map.clear();
        EXPECT_EQ(take(item::destroyed),
                  (std::vector<int>{1, 101, 3, 103, 2, 102, 5, 105, 7, 107, 6, 106, 4, 104}));
        map = copy;
        take(item::copied);
        item_map const again(map);
        EXPECT_EQ(take(item::copied),
                  (std::vector<int>{4, 104, 2, 102, 1, 101, 3, 103, 6, 106, 5, 105, 7, 107}));
        auto const kept = map.find(6);
        map.insert(6, kept->second);  // its own value: nothing to do
        EXPECT_EQ(take(item::copied), std::vector<int>{});
    }
    EXPECT_EQ(item::live, 0);
}

struct stamp_key {
    std::uint64_t stamp;
    std::uint32_t id;
    bool operator<(stamp_key const& o) const { return stamp != o.stamp ? stamp < o.stamp : id < o.id; }
    bool operator==(stamp_key const& o) const { return stamp == o.stamp && id == o.id; }
};
struct alignas(std::max_align_t) wide {
    unsigned char bytes[16];
};

template <typename T>
bool aligned(T const& t) {
    return reinterpret_cast<std::uintptr_t>(&t) % alignof(T) == 0;
}

TEST(containers, elements_are_aligned) {
    smap<stamp_key, char> stamps;
    smap<char, wide> wides;
    slist<wide> list;
    svector<wide> vector;
    stamps.insert({1, 2}, 'x');
    wides['a'] = wide{};
    list.push_back(wide{});
    vector.resize(3);
    EXPECT_TRUE(aligned(stamps.begin()->first));
    EXPECT_TRUE(aligned(wides.begin()->second));
    EXPECT_TRUE(aligned(list.front()));
    EXPECT_TRUE(aligned(vector[1]));
}

// A degenerate tree on a stack that has no room for recursion along it.
TEST(smap, deep_trees_need_no_stack) {
    auto const body = [](void*) -> void* {
        constexpr int depth = 8000;
        smap<int, int> ascending, descending;
        for (int i = 0; i < depth; ++i) {
            ascending.insert(i, i);
            descending.insert(-i, i);
        }
        smap<int, int> copy(ascending);
        copy = descending;
        for (auto i = copy.begin(); i != copy.end(); ++i)
            EXPECT_EQ(i->first, -i->second);
        copy.erase(-depth / 2);
        EXPECT_EQ(copy.size(), depth - 1);
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 128 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
    pthread_join(thread, nullptr);
}

void random_list_operations(unsigned seed) {
    SCOPED_TRACE(seed_trace(seed));
    std::mt19937 random(seed);
    {
        slist<item> list, other;
        std::list<int> model;
        for (int step = 0; step < 20000; ++step) {
            int const value = static_cast<int>(random() % 1000);
            switch (random() % 8) {
                case 0:
                case 1:
                    ASSERT_EQ(list.push_back(value)->value, value);
                    model.push_back(value);
                    break;
                case 2:
                    ASSERT_EQ((*list.push_front(value)).value, value);
                    model.push_front(value);
                    break;
                case 3: list.pop_front(), model.empty() ? void() : model.pop_front(); break;
                case 4: list.pop_back(), model.empty() ? void() : model.pop_back(); break;
                case 5:
                    if (!model.empty()) {
                        auto const n = static_cast<std::ptrdiff_t>(random() % model.size());
                        auto at = list.begin();
                        for (auto i = n; i > 0; --i)
                            ++at;
                        list.erase(at);
                        model.erase(std::next(model.begin(), n));
                    }
                    break;
                case 6:
                    other = list;
                    list = *&list;
                    ASSERT_EQ(list.size(), other.size());
                    if (random() % 50 == 0)
                        list.clear(), model.clear();
                    else
                        list = slist<item>(other);
                    break;
                default: break;
            }
            slist<item> const& view = list;
            auto const same = [](item const& a, int b) { return a.value == b; };
            ASSERT_EQ(view.size(), static_cast<int>(model.size()));
            ASSERT_EQ(view.empty(), model.empty());
            auto m = model.begin();
            for (auto i = view.begin(); i != view.end(); ++i, ++m)
                ASSERT_TRUE(m != model.end() && same(*i, *m));
            ASSERT_EQ(m, model.end());
            ASSERT_TRUE(model.empty() ||
                        (same(view.front(), model.front()) && same(view.back(), model.back())));
            ASSERT_EQ(item::live, list.size() + other.size());
        }
    }
    EXPECT_EQ(item::live, 0);
}

TEST(slist, random_operations_like_std_list) {
    seed_range{1, 5}.for_each(random_list_operations);
}

/// Numbers itself in order of construction.
struct numbered : item {
    static inline int next = 0;
    numbered() : item(next++) {}
};

TEST(svector, resize_always_starts_anew) {
    svector<numbered> vector;
    EXPECT_FALSE(vector.valid(0));
    vector.clear();
    take(item::destroyed);
    vector.resize(3);
    numbered* const first = &vector[0];
    EXPECT_EQ(reinterpret_cast<std::size_t const*>(first)[-1], 3u);
    vector.resize(8);
    EXPECT_EQ(take(item::destroyed), (std::vector<int>{2, 1, 0}));
    EXPECT_EQ(item::live, 8);
    EXPECT_EQ(vector.size(), 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(vector[i].value, 3 + i);
    EXPECT_TRUE(vector.valid(0) && vector.valid(7));
    EXPECT_FALSE(vector.valid(-1) || vector.valid(8));
    vector.resize(-1);
    EXPECT_EQ(take(item::destroyed), (std::vector<int>{10, 9, 8, 7, 6, 5, 4, 3}));
    EXPECT_EQ(vector.size(), 0);
    vector.resize(2);
}

// Containers and strings in static storage work in other files' start-up code.
constinit smap<int, str> early_map;
constinit slist<str> early_list;
constinit svector<str> early_vector;
[[maybe_unused]] int const early_use = [] {
    early_map[1] = str::crlf + str("x");
    early_list.push_back(early_map[1]);
    early_vector.resize(2);
    early_vector[1] = str::dot_dot;
    return 0;
}();

TEST(containers, usable_before_main) {
    EXPECT_TRUE(early_map.find(1)->second == "\r\nx");
    EXPECT_TRUE(early_list.front() == "\r\nx");
    EXPECT_TRUE(early_vector[1] == "..");
}

}  // namespace
