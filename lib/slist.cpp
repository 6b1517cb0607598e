#include "lib/slist.h"

#include <new>

#include "lib/str.h"

slist_impl::elem_impl* slist_impl::new_node(void const* element, elem_impl* previous, elem_impl* next) {
    auto const bytes = static_cast<unsigned>(sizeof(elem_impl)) + element_size;
    auto* node = ::new (str::malloc(bytes, false)) elem_impl{previous, next};
    element_copy_constructor(get_element(node), element);
    (previous ? previous->next : head) = node;
    (next ? next->previous : tail) = node;
    ++count;
    return node;
}

slist_impl::elem_impl* slist_impl::push_back(void const* element) {
    return new_node(element, tail, nullptr);
}

slist_impl::elem_impl* slist_impl::push_front(void const* element) {
    return new_node(element, nullptr, head);
}

void slist_impl::erase(elem_impl* node) {
    (node->previous ? node->previous->next : head) = node->next;
    (node->next ? node->next->previous : tail) = node->previous;
    --count;
    element_destructor(get_element(node));
    str::free(node);
}

void slist_impl::pop_front() {
    if (head)
        erase(head);
}

void slist_impl::pop_back() {
    if (tail)
        erase(tail);
}

void slist_impl::clear() {
    while (head)
        erase(head);
}

void slist_impl::copy(slist_impl const& other) {
    if (this == &other)
        return;
    clear();
    for (elem_impl* node = other.head; node; node = node->next)
        push_back(get_element(node));
}
