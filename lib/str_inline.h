#pragma once

/// The short members of str that the media path calls for every packet. Included by lib/str.h only, at its end.

#include <bit>

inline str::str(str const& other) : ref(other.ref), next(this), prev(this), start(other.start), end(other.end) {
    if (ref)
        join(other);
}

inline str::str(str&& other) noexcept : str() {
    take_over(other);
}

inline str::~str() {
    drop();
}

inline str& str::operator=(str const& other) {
    if (ref != other.ref) {
        drop();
        ref = other.ref;
        if (ref)
            join(other);
    }
    start = other.start;
    end = other.end;
    return *this;
}

inline str& str::operator=(str&& other) noexcept {
    if (this != &other) {
        drop();
        take_over(other);
    }
    return *this;
}

inline void str::clear() {
    drop();
    ref = nullptr;
    start = end = 0;
}

inline void str::writable(int n) {
    if (ref && alone() && n >= 0 && n <= ref->capacity - end)
        end += n;
    else
        move_to_new_block(n);
}

inline str str::substr(int pos, int n) const {
    if (pos < 0) {
        n = n < 0 ? 0 : n + pos;
        pos = 0;
    }
    int const rest = length() - pos;
    if (n > rest)
        n = rest;
    return n > 0 ? str(*this, start + pos, start + pos + n) : str();
}

inline str str::substr(int pos) const {
    if (pos < 0)
        pos = 0;
    return pos < length() ? str(*this, start + pos, end) : str();
}

inline void str::drop_front(int n) {
    if (n >= length())
        clear();
    else if (n > 0)
        start += n;
}

inline str str::rightstr(int n) const {
    return n > 0 ? substr(length() - n, n) : str();
}

inline int str::find_bin(int size) {
    if (size <= 16)
        return 0;
    unsigned const with_header = static_cast<unsigned>(size) + 15;  // of one byte less than size
    if (with_header < 0x20000)
        return static_cast<int>(std::bit_width(with_header)) - 5;
    unsigned const step = with_header >> 16;
    return step < 8 ? static_cast<int>(step) + 11 : class_count;
}
