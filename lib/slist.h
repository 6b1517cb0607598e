#pragma once

#include <cstddef>

#include "lib/sallocator.h"

/// The one implementation behind every slist<T>: a doubly linked list that knows elements only as byte blocks
/// of a given size, handled through function pointers that the typed shell installs. Every node is one block
/// from str::malloc. The list owns its elements.
class slist_impl {
public:
    /// A node's links; the element's bytes follow. The alignment makes them fit for any type.
    struct alignas(std::max_align_t) elem_impl {
        elem_impl* previous;
        elem_impl* next;
    };

    using copy_function = void (*)(void* p, void const* src);
    using element_function = void (*)(void* p);

    /// `bytes`: size of an element.
    constexpr slist_impl(unsigned bytes, copy_function copy_constructor, element_function destructor)
        : element_size(bytes), element_copy_constructor(copy_constructor), element_destructor(destructor) {}
    slist_impl(slist_impl const&) = delete;
    slist_impl& operator=(slist_impl const&) = delete;
    ~slist_impl() { clear(); }

    /// Address of the node's element.
    static void* get_element(elem_impl* node) { return node + 1; }

    elem_impl* first() const { return head; }
    elem_impl* last() const { return tail; }
    int size() const { return count; }

    /// Links a copy of the element behind the last / before the first node.
    elem_impl* push_back(void const* element);
    elem_impl* push_front(void const* element);
    /// Unlinks the node and destroys its element.
    void erase(elem_impl* node);
    /// Erase the first / the last element; nothing on an empty list.
    void pop_front();
    void pop_back();
    /// Erases all elements, first to last.
    void clear();
    /// Becomes a list of copies in the same order. Nothing for a copy of itself.
    void copy(slist_impl const& other);

private:
    elem_impl* new_node(void const* element, elem_impl* previous, elem_impl* next);

    elem_impl* head = nullptr;
    elem_impl* tail = nullptr;
    int count = 0;
    unsigned element_size;
    copy_function element_copy_constructor;
    element_function element_destructor;
};

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
