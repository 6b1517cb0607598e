#include "lib/smap.h"

#include <new>

#include "lib/str.h"

namespace {

using elem_impl = smap_impl::elem_impl;

elem_impl* parent_of(elem_impl const* node) {
    return node->parent_if_right ? node->parent_if_right : node->parent_if_left;
}

void adopt_left(elem_impl* parent, elem_impl* child) {
    parent->left = child;
    if (child)
        child->parent_if_left = parent;
}

void adopt_right(elem_impl* parent, elem_impl* child) {
    parent->right = child;
    if (child)
        child->parent_if_right = parent;
}

elem_impl* rightmost(elem_impl* node) {
    while (node->right)
        node = node->right;
    return node;
}

elem_impl* preorder_next(elem_impl const* node) {
    if (node->left)
        return node->left;
    if (node->right)
        return node->right;
    for (; node; node = parent_of(node)) {
        if (node->parent_if_left && node->parent_if_left->right)
            return node->parent_if_left->right;
    }
    return nullptr;
}

}  // namespace

smap_impl::position smap_impl::locate(void const* key) const {
    if (greatest && less(get_first(greatest), key))
        return {nullptr, greatest, true};
    position place{root, nullptr, false};
    while (place.node && !equal(key, get_first(place.node))) {
        place.parent = place.node;
        place.right = !less(key, get_first(place.node));
        place.node = place.right ? place.node->right : place.node->left;
    }
    return place;
}

smap_impl::elem_impl* smap_impl::find(void const* key) const {
    return locate(key).node;
}

smap_impl::elem_impl* smap_impl::attach(position const& place, void const* key) {
    auto const bytes = static_cast<unsigned>(sizeof(elem_impl) + second_offset(first_size) + second_size);
    auto* node = ::new (str::malloc(bytes, false)) elem_impl{};
    first_copy_constructor(get_first(node), key);
    if (place.parent == greatest && (place.right || !greatest))
        greatest = node;
    if (!place.parent)
        root = node;
    else if (place.right)
        adopt_right(place.parent, node);
    else
        adopt_left(place.parent, node);
    ++count;
    return node;
}

smap_impl::elem_impl* smap_impl::insert(void const* key, void const* value) {
    position const place = locate(key);
    elem_impl* node = place.node;
    if (!node)
        node = attach(place, key);
    else if (second_size == 0 || value == get_second(node))
        return node;
    else
        second_destructor(get_second(node));
    if (second_size > 0)
        second_copy_constructor(get_second(node), value);
    return node;
}

smap_impl::elem_impl* smap_impl::access(void const* key) {
    position const place = locate(key);
    if (place.node)
        return place.node;
    elem_impl* node = attach(place, key);
    if (second_size > 0)
        second_constructor(get_second(node));
    return node;
}

void smap_impl::erase_iterator(elem_impl* node) {
    if (node == greatest)
        greatest = node->left ? rightmost(node->left) : node->parent_if_right;
    unlink_node(node);
    --count;
    destroy(node);
}

void smap_impl::destroy(elem_impl* node) {
    first_destructor(get_first(node));
    if (second_size > 0)
        second_destructor(get_second(node));
    str::free(node);
}

void smap_impl::replace_in_parent(elem_impl const* node, elem_impl* replacement) {
    if (replacement) {
        replacement->parent_if_right = node->parent_if_right;
        replacement->parent_if_left = node->parent_if_left;
    }
    if (node->parent_if_right)
        node->parent_if_right->right = replacement;
    else if (node->parent_if_left)
        node->parent_if_left->left = replacement;
    else
        root = replacement;
}

void smap_impl::unlink_node(elem_impl* node) {
    if (!node->left || !node->right) {
        replace_in_parent(node, node->left ? node->left : node->right);
        return;
    }
    elem_impl* const heir = rightmost(node->left);
    unlink_node(heir);  // has no right child: this call goes no deeper
    replace_in_parent(node, heir);
    adopt_left(heir, node->left);
    adopt_right(heir, node->right);
}

void smap_impl::clear() {
    greatest = nullptr;
    elem_impl* node = root;
    while (node) {
        if (node->left || node->right) {
            node = node->left ? node->left : node->right;
            continue;
        }
        elem_impl* const parent = parent_of(node);
        replace_in_parent(node, nullptr);
        --count;
        destroy(node);
        node = parent;
    }
}

void smap_impl::copy(smap_impl const& other) {
    if (this == &other)
        return;
    for (elem_impl* node = other.root; node; node = preorder_next(node))
        insert(get_first(node), other.get_second(node));
}

smap_impl::elem_impl* smap_impl::begin() const {
    elem_impl* node = root;
    while (node && node->left)
        node = node->left;
    return node;
}

smap_impl::elem_impl* smap_impl::successor(elem_impl* node) {
    if (node->right) {
        node = node->right;
        while (node->left)
            node = node->left;
        return node;
    }
    while (node->parent_if_right)
        node = node->parent_if_right;
    return node->parent_if_left;
}
