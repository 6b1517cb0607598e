#include <cstring>

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
