#pragma once

#include "lib/sallocator.h"
#include "lib/slist_impl.h"

/// Doubly linked list of T: a thin typed shell over slist_impl. Elements are copied in and owned; references
/// and iterators stay valid until their own element is erased. An empty list is constant-initialised.
template <typename T>
class slist : private slist_impl {
    static_assert(alignof(T) <= alignof(std::max_align_t));

    template <typename Element>
    class basic_iterator {
    public:
        /// The end.
        constexpr basic_iterator() = default;

        Element& operator*() const { return *static_cast<Element*>(get_element(node)); }
        Element* operator->() const { return &**this; }
        basic_iterator& operator++() {
            node = node->next;
            return *this;
        }
        bool operator==(basic_iterator const& other) const = default;

    private:
        friend slist;
        basic_iterator(elem_impl* at) : node(at) {}

        elem_impl* node = nullptr;
    };

public:
    using iterator = basic_iterator<T>;
    using const_iterator = basic_iterator<T const>;

    constexpr slist() : slist_impl(sizeof(T), sallocator<T>::copy_constructor, sallocator<T>::destructor) {}
    slist(slist const& other) : slist() { copy(other); }
    slist& operator=(slist const& other) {
        copy(other);
        return *this;
    }

    /// Number of elements.
    int size() const { return slist_impl::size(); }
    bool empty() const { return size() == 0; }

    iterator begin() { return {first()}; }
    const_iterator begin() const { return {first()}; }
    iterator end() { return {}; }
    const_iterator end() const { return {}; }

    /// The first / last element of a list that is not empty.
    T& front() { return *static_cast<T*>(get_element(first())); }
    T& back() { return *static_cast<T*>(get_element(last())); }
    T const& front() const { return *static_cast<T const*>(get_element(first())); }
    T const& back() const { return *static_cast<T const*>(get_element(last())); }

    iterator push_back(T const& element) { return {slist_impl::push_back(&element)}; }
    iterator push_front(T const& element) { return {slist_impl::push_front(&element)}; }
    /// Nothing on an empty list.
    void pop_front() { slist_impl::pop_front(); }
    void pop_back() { slist_impl::pop_back(); }
    /// `at` must not be the end; it is invalid afterwards.
    void erase(iterator const& at) { slist_impl::erase(at.node); }
    void clear() { slist_impl::clear(); }
};
