// What is done with the bytes of strings: comparing, finding, changing them in place, combining two strings.

#include <cstring>

#include "lib/log.h"
#include "lib/str.h"

namespace {

unsigned char lower(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

}  // namespace

bool str::compare_sensitiv(str const& other) const {
    return length() == other.length() && std::memcmp(cbuffer(), other.cbuffer(), bytes(length())) == 0;
}

bool str::operator==(char const* text) const {
    if (!text)
        return empty();
    unsigned char const* const own = cbuffer();
    for (int i = 0; i < length(); ++i) {
        if (text[i] == 0 || static_cast<unsigned char>(text[i]) != own[i])
            return false;
    }
    return text[length()] == 0;
}

bool str::compare_insensitiv(str const& other) const {
    if (length() != other.length())
        return false;
    unsigned char const* const a = cbuffer();
    unsigned char const* const b = other.cbuffer();
    for (int i = 0; i < length(); ++i) {
        if (lower(a[i]) != lower(b[i]))
            return false;
    }
    return true;
}

bool str::icmp(char const* text) const {
    if (!text)
        return empty();
    unsigned char const* const own = cbuffer();
    for (int i = 0; i < length(); ++i) {
        if (text[i] == 0 || lower(static_cast<unsigned char>(text[i])) != lower(own[i]))
            return false;
    }
    return text[length()] == 0;
}

bool str::operator<(str const& other) const {
    int const common = length() < other.length() ? length() : other.length();
    int const order = std::memcmp(cbuffer(), other.cbuffer(), bytes(common));
    return order != 0 ? order < 0 : length() < other.length();
}

int str::find(str const& s) const {
    if (empty())
        return -1;
    if (s.empty())
        return 0;
    unsigned char const* const text = cbuffer();
    unsigned char const* const wanted = s.cbuffer();
    int const last = length() - s.length();
    for (int i = 0; i <= last; ++i) {
        void const* const hit = std::memchr(text + i, wanted[0], bytes(last - i + 1));
        if (!hit)
            return -1;
        i = static_cast<int>(static_cast<unsigned char const*>(hit) - text);
        if (std::memcmp(hit, wanted, bytes(s.length())) == 0)
            return i;
    }
    return -1;
}

void str::set_length(int n) {
    int const room = ref ? ref->capacity - start : 0;
    if (alone() && n >= 0 && n <= room)
        end = start + n;
    else if (log_check_condition(1))
        log_add_message(1, sprintf("Cannot set length %d", n), null);
}

void str::set_character(int i, unsigned char c) {
    if (i < 0)
        return;
    if (i >= length()) {
        grow_zeroed(i - length());
        *this += c;
        return;
    }
    writable(0);
    ref->data()[start + i] = c;
}

/// Bytes of the block between the first and the last one that the ring uses; `from` is where they begin. -1 for
/// a ring that is too long.
int str::used_span(int& from) const {
    constexpr int max_members = 16;  // chosen: keeps the walk short
    int to = end;
    from = start;
    int visited = 1;
    for (str const* s = next; s != this; s = s->next) {
        if (++visited > max_members)
            return -1;
        from = s->start < from ? s->start : from;
        to = s->end > to ? s->end : to;
    }
    return to - from;
}

void str::compress() {
    if (!ref || (ref->flags & flag_pointer_held))
        return;
    int const bin = find_bin(ref->capacity);
    if (bin == 0 || bin == class_count)
        return;
    int from;
    int const used = used_span(from);
    if (used < 0 || used > get_bin_size(bin - 1))
        return;
    reference* const old = ref;
    reference* const block = get_cstring(used);
    std::memcpy(block->data(), old->data() + from, bytes(used));
    block->flags |= old->flags & flag_secret;
    str* s = this;
    do {
        s->ref = block;
        s->start -= from;
        s->end -= from;
        s = s->next;
    } while (s != this);
    release_cstring(old);
}

void str::l_xor(unsigned char key, int n) {
    writable(0);
    if (n > length())
        grow_zeroed(n - length());
    unsigned char* const data = ref->data() + start;
    for (int i = 0; i < n; ++i)
        data[i] = static_cast<unsigned char>(data[i] ^ key);
}

template <typename operation>
str str::bitwise(str const& other, operation combine) const {
    bool const shorter = length() < other.length();
    int const common = shorter ? length() : other.length();
    str result(static_cast<unsigned char>(0), shorter ? other.length() : length());
    unsigned char const* const a = cbuffer();
    unsigned char const* const b = other.cbuffer();
    for (int i = 0; i < common; ++i)
        result.ref->data()[i] = static_cast<unsigned char>(combine(a[i], b[i]));
    return result;
}

str str::operator&(str const& other) const {
    return bitwise(other, [](int a, int b) { return a & b; });
}

str str::operator^(str const& other) const {
    return bitwise(other, [](int a, int b) { return a ^ b; });
}

str str::operator|(str const& other) const {
    return bitwise(other, [](int a, int b) { return a | b; });
}

str str::operator!() const {
    str result(nullptr, length());
    unsigned char const* const own = cbuffer();
    for (int i = 0; i < length(); ++i)
        result.ref->data()[i] = own[i] == 0;
    return result;
}
