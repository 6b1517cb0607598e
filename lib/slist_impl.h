#pragma once

#include <cstddef>

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
