#pragma once

#include <new>

/// What the containers must know of an element type, as functions on untyped pointers: construction,
/// destruction and order. `smap` and `slist` install them in their type-erased implementations. Only the
/// functions that are used need the matching operation of T.
template <typename T>
struct sallocator {
    /// Default-constructs a T at p.
    static void constructor(void* p) { ::new (p) T(); }
    /// Copy-constructs a T at p from the T at src.
    static void copy_constructor(void* p, void const* src) { ::new (p) T(*static_cast<T const*>(src)); }
    /// Destroys the T at p; the memory stays.
    static void destructor(void* p) { static_cast<T*>(p)->~T(); }
    /// a < b
    static bool less(void const* a, void const* b) { return *static_cast<T const*>(a) < *static_cast<T const*>(b); }
    /// a == b
    static bool equal(void const* a, void const* b) { return *static_cast<T const*>(a) == *static_cast<T const*>(b); }
};
