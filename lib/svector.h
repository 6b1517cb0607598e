#pragma once

#include <cstddef>
#include <new>

/// A fixed number of T, made once and then used by index; it owns them. Not a growing array: resize() never
/// keeps the old contents. The elements never move. An empty vector is constant-initialised.
template <typename T>
class svector {
    static_assert(alignof(T) <= alignof(std::max_align_t));

public:
    constexpr svector() = default;
    svector(svector const&) = delete;
    svector& operator=(svector const&) = delete;
    ~svector() { clear(); }

    /// Destroys all elements, then default-constructs n new ones in index order (n < 1: none).
    void resize(int n) {
        clear();
        if (n < 1)
            return;
        auto const wanted = static_cast<std::size_t>(n);
        auto* block = static_cast<unsigned char*>(::operator new[](front_bytes + wanted * sizeof(T)));
        ::new (block + front_bytes - sizeof(std::size_t)) std::size_t(wanted);
        auto* const array = static_cast<T*>(static_cast<void*>(block + front_bytes));
        for (std::size_t i = 0; i < wanted; ++i)
            ::new (array + i) T();
        first = array;
        count = n;
    }

    /// No bounds check: where i comes from outside, ask valid(i) first.
    T& operator[](int i) { return first[i]; }
    T const& operator[](int i) const { return first[i]; }
    /// 0 <= i < size()
    bool valid(int i) const { return i >= 0 && i < count; }
    int size() const { return count; }

    /// Destroys all elements, from the last to the first.
    void clear() {
        if (!first)
            return;
        T* const array = first;
        for (int i = count; i-- > 0;)
            array[i].~T();
        first = nullptr;
        count = 0;
        ::operator delete[](reinterpret_cast<unsigned char*>(array) - front_bytes);
    }

private:
    /// The element count stands right in front of the first element, as compilers store it.
    static constexpr std::size_t front_bytes = alignof(T) > sizeof(std::size_t) ? alignof(T) : sizeof(std::size_t);

    T* first = nullptr;
    int count = 0;
};
