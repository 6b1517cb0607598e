#include "lib/str.h"

#include <climits>
#include <cstdlib>
#include <cstring>

unsigned char str::nothing[16];

// ---- construction

void str::own_new_block(int size) {
    if (size < 1)
        return;
    ref = get_cstring(size);
    end = size;
}

str::str(char const* text) : str() {
    if (text)
        append(reinterpret_cast<unsigned char const*>(text), static_cast<int>(std::strlen(text)));
}

str::str(unsigned char const* data, int n) : str() {
    own_new_block(n);
    if (n > 0 && data)
        std::memcpy(ref->data(), data, bytes(n));
}

str::str(unsigned char c, int n) : str() {
    own_new_block(n);
    if (n > 0)
        std::memset(ref->data(), c, bytes(n));
}

str::str(char c, int n) : str(static_cast<unsigned char>(c), n) {}

str::str(unsigned char a, unsigned char b) : str() {
    unsigned char const all[] = {a, b};
    append(all, sizeof(all));
}

str::str(unsigned char a, unsigned char b, unsigned char c) : str() {
    unsigned char const all[] = {a, b, c};
    append(all, sizeof(all));
}

str::str(unsigned char a, unsigned char b, unsigned char c, unsigned char d) : str() {
    unsigned char const all[] = {a, b, c, d};
    append(all, sizeof(all));
}

// ---- access

unsigned char* str::buffer() {
    if (!ref)
        return nothing;
    writable(0);
    ref->flags |= flag_pointer_held;
    return ref->data() + start;
}

char* str::c_str() {
    if (empty()) {
        static char empty_text[1];
        empty_text[0] = 0;
        return empty_text;
    }
    *this += static_cast<unsigned char>(0);
    --end;
    ref->flags |= flag_pointer_held;
    return reinterpret_cast<char*>(ref->data() + start);
}

// ---- growth

void str::move_to_new_block(int n) {
    if (n < 0) {
        n = 0;
        if (ref && alone())
            return;
    }
    int const used = length();
    if (n > INT_MAX - used)
        std::abort();
    reference* const block = get_cstring(used + n);
    if (used > 0)
        std::memcpy(block->data(), cbuffer(), bytes(used));
    drop();
    ref = block;
    start = 0;
    end = used + n;
}

void str::grow_zeroed(int n) {
    writable(n);
    std::memset(ref->data() + end - n, 0, bytes(n));
}

void str::append(unsigned char const* data, int n) {
    if (n < 1)
        return;
    writable(n);
    std::memcpy(ref->data() + end - n, data, bytes(n));
}

str& str::operator+=(str const& other) {
    int const n = other.length();
    if (n > 0) {
        writable(n);
        std::memcpy(ref->data() + end - n, other.cbuffer(), bytes(n));  // right for x += x too
    }
    return *this;
}

str str::operator+(str const& other) const {
    str sum;
    if (other.length() > INT_MAX - length())
        std::abort();
    sum.own_new_block(length() + other.length());
    if (!empty())
        std::memcpy(sum.ref->data(), cbuffer(), bytes(length()));
    if (!other.empty())
        std::memcpy(sum.ref->data() + length(), other.cbuffer(), bytes(other.length()));
    return sum;
}
