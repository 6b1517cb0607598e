#pragma once

#include <cstddef>
#include <type_traits>

#include "lib/sallocator.h"
#include "lib/smap_impl.h"

/// Ordered map from unique keys K to values V: a thin typed shell over smap_impl, which see for structure and
/// cost. K needs operator< and operator==, V a default constructor; both are copied in.
///
/// References and iterators stay valid until their own element is erased. An empty map is constant-initialised,
/// so a global one is usable at any time before main().
template <typename K, typename V>
class smap : private smap_impl {
    static_assert(alignof(K) <= alignof(std::max_align_t) && alignof(V) <= alignof(std::max_align_t));

    template <typename Value>
    class basic_iterator {
    public:
        /// A key and its value, in place; what `->` and `*` give.
        struct pair {
            K const& first;
            Value& second;
            pair const* operator->() const { return this; }
        };

        /// The end.
        constexpr basic_iterator() = default;
        /// A read-only iterator from one that may change values.
        template <typename Other>
        requires(std::is_const_v<Value>&& std::is_same_v<Other, std::remove_const_t<Value>>)
            basic_iterator(basic_iterator<Other> const& other)
            : node(other.node) {}

        pair operator*() const {
            return {*static_cast<K const*>(get_first(node)),
                    *static_cast<Value*>(get_second(node, sizeof(K)))};
        }
        pair operator->() const { return **this; }
        /// To the next greater key.
        basic_iterator& operator++() {
            node = successor(node);
            return *this;
        }
        bool operator==(basic_iterator const& other) const { return node == other.node; }

    private:
        friend smap;
        template <typename>
        friend class basic_iterator;
        basic_iterator(elem_impl* at) : node(at) {}

        elem_impl* node = nullptr;
    };

public:
    using iterator = basic_iterator<V>;
    using const_iterator = basic_iterator<V const>;

    constexpr smap() {
        set_first_size(sizeof(K));
        set_first_copy_constructor(sallocator<K>::copy_constructor);
        set_first_destructor(sallocator<K>::destructor);
        set_second_size(sizeof(V));
        set_second_copy_constructor(sallocator<V>::copy_constructor);
        set_second_constructor(sallocator<V>::constructor);
        set_second_destructor(sallocator<V>::destructor);
        set_less(sallocator<K>::less);
        set_equal(sallocator<K>::equal);
    }
    smap(smap const& other) : smap() { copy(other); }
    smap& operator=(smap const& other) {
        if (this != &other) {
            smap_impl::clear();
            copy(other);
        }
        return *this;
    }

    /// Number of elements.
    int size() const { return smap_impl::size(); }
    bool empty() const { return size() == 0; }

    /// In ascending order of the keys.
    iterator begin() { return {smap_impl::begin()}; }
    const_iterator begin() const { return {smap_impl::begin()}; }
    iterator end() { return {}; }
    const_iterator end() const { return {}; }

    /// end() when there is no such key.
    iterator find(K const& key) { return {smap_impl::find(&key)}; }
    const_iterator find(K const& key) const { return {smap_impl::find(&key)}; }
    /// Overwrites the value of a key that exists.
    iterator insert(K const& key, V const& value) { return {smap_impl::insert(&key, &value)}; }
    /// The key's value; adds a default-constructed one for a new key.
    V& operator[](K const& key) { return *static_cast<V*>(get_second(access(&key))); }

    /// `at` must not be the end; it is invalid afterwards.
    void erase(iterator const& at) { erase_iterator(at.node); }
    /// Whether there was such a key.
    bool erase(K const& key) {
        elem_impl* node = smap_impl::find(&key);
        if (node)
            erase_iterator(node);
        return node != nullptr;
    }
    /// Destroys all elements.
    void clear() { smap_impl::clear(); }
};
