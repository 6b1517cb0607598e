#pragma once

#include <cstddef>
#include <type_traits>

#include "lib/sallocator.h"

/// The one implementation behind every smap<K, V>: an ordered map of unique keys that knows keys and values
/// only as byte blocks of a given size, handled through function pointers that the typed shell installs.
///
/// A plain binary search tree, deliberately without rebalancing: its depth depends on the order of insertion.
/// No operation recurses along the tree, so depth costs time but no stack. Every node is one block from
/// str::malloc. The map owns its keys and values.
class smap_impl {
public:
    /// A node's links; the key's bytes follow, then the value's. At most one parent link is set; both are null
    /// at the root. The alignment makes the key behind it fit for any type.
    struct alignas(std::max_align_t) elem_impl {
        elem_impl* left;
        elem_impl* right;
        elem_impl* parent_if_right;  ///< the parent when this is its right child
        elem_impl* parent_if_left;   ///< the parent when this is its left child
    };

    using copy_function = void (*)(void* p, void const* src);
    using element_function = void (*)(void* p);
    using compare_function = bool (*)(void const* a, void const* b);

    constexpr smap_impl() = default;
    smap_impl(smap_impl const&) = delete;
    smap_impl& operator=(smap_impl const&) = delete;
    ~smap_impl() { clear(); }

    // ---- set once, before the first element
    /// Bytes of a key.
    constexpr void set_first_size(unsigned bytes) { first_size = bytes; }
    constexpr void set_first_copy_constructor(copy_function f) { first_copy_constructor = f; }
    constexpr void set_first_destructor(element_function f) { first_destructor = f; }
    /// Bytes of a value; 0 for a map without values, which needs none of the second functions.
    constexpr void set_second_size(unsigned bytes) { second_size = bytes; }
    constexpr void set_second_copy_constructor(copy_function f) { second_copy_constructor = f; }
    constexpr void set_second_constructor(element_function f) { second_constructor = f; }
    constexpr void set_second_destructor(element_function f) { second_destructor = f; }
    constexpr void set_less(compare_function f) { less = f; }
    constexpr void set_equal(compare_function f) { equal = f; }

    /// Address of the node's key.
    static void* get_first(elem_impl* node) { return node + 1; }
    static void const* get_first(elem_impl const* node) { return node + 1; }
    /// Address of the node's value.
    void* get_second(elem_impl* node) const { return get_second(node, first_size); }
    static void* get_second(elem_impl* node, std::size_t key_bytes) {
        return static_cast<unsigned char*>(get_first(node)) + second_offset(key_bytes);
    }

    /// The node with that key; null when there is none (null is the end of an iteration too).
    elem_impl* find(void const* key) const;
    /// Adds a node with copies of key and value, or replaces the value of the node that has the key (unless it
    /// is that very object).
    elem_impl* insert(void const* key, void const* value);
    /// The node with that key; a new one with a default-constructed value when there is none.
    elem_impl* access(void const* key);
    /// Takes the node out and destroys its key and value.
    void erase_iterator(elem_impl* node);
    /// Destroys every node, children before their parent.
    void clear();
    /// Inserts every node of `other`, a parent before its children and the left subtree before the right one:
    /// an empty map becomes a tree of the same shape. Nothing for a copy of itself.
    void copy(smap_impl const& other);

    /// The node with the least key; null when empty.
    elem_impl* begin() const;
    /// The node with the next greater key; null behind the last.
    static elem_impl* successor(elem_impl* node);
    /// Number of nodes.
    int size() const { return count; }

private:
    /// Where a search ended: the node found, or else the link on which a node with that key belongs.
    struct position {
        elem_impl* node;
        elem_impl* parent;  ///< null when the tree is empty
        bool right;         ///< as the parent's right child
    };

    /// Distance of the value from the key: the key's size, rounded up so that any type is aligned there.
    static constexpr std::size_t second_offset(std::size_t key_bytes) {
        return (key_bytes + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
    }
    position locate(void const* key) const;
    elem_impl* attach(position const& place, void const* key);
    void unlink_node(elem_impl* node);
    void replace_in_parent(elem_impl const* node, elem_impl* replacement);
    void destroy(elem_impl* node);

    elem_impl* root = nullptr;
    elem_impl* greatest = nullptr;  ///< where keys in ascending order are added without a search
    int count = 0;
    unsigned first_size = 0;
    unsigned second_size = 0;
    copy_function first_copy_constructor = nullptr;
    element_function first_destructor = nullptr;
    copy_function second_copy_constructor = nullptr;
    element_function second_constructor = nullptr;
    element_function second_destructor = nullptr;
    compare_function less = nullptr;
    compare_function equal = nullptr;
};

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
            return {*static_cast<K const*>(get_first(node)), *static_cast<Value*>(get_second(node, sizeof(K)))};
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
