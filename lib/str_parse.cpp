#include <cstring>

#include "lib/str.h"
#include "lib/wire.h"

namespace {

bool blank_or_tab(int c) {
    return c == ' ' || c == '\t';
}
bool digit(int c) {
    return c >= '0' && c <= '9';
}

int skip_blanks(str const& text, int i) {
    while (i < text.length() && blank_or_tab(text[i]))
        ++i;
    return i;
}

unsigned digits_from(str const& text, int i) {
    unsigned value = 0;
    for (; digit(text[i]); ++i)
        value = value * 10 + (text[i] - static_cast<unsigned>('0'));
    return value;
}

/// Where the first number begins: behind blanks, tabs and one "+".
int number_start(str const& text) {
    int const i = skip_blanks(text, 0);
    return text[i] == '+' ? i + 1 : i;
}

/// End of the run from i on whose bytes satisfy `inside`.
template <typename predicate>
int run_end(str const& text, int i, predicate inside) {
    unsigned char const* const bytes = text.cbuffer();
    while (i < text.length() && inside(bytes[i]))
        ++i;
    return i;
}

/// Where field n begins (from 0; runs of separators count as one).
template <typename predicate>
int field_start(str const& text, int n, predicate separator) {
    int i = run_end(text, 0, separator);
    for (; n > 0 && i < text.length(); --n) {
        i = run_end(text, i, [&](unsigned char c) { return !separator(c); });
        i = run_end(text, i, separator);
    }
    return i;
}

/// Where the run of unwanted bytes at the end of the string begins.
template <typename predicate>
int strip_end(str const& text, predicate unwanted) {
    unsigned char const* const bytes = text.cbuffer();
    int end = text.length();
    while (end > 0 && unwanted(bytes[end - 1]))
        --end;
    return end;
}

template <typename predicate>
str strip_both(str const& text, predicate unwanted) {
    int const from = run_end(text, 0, unwanted);
    return text.substr(from, strip_end(text, unwanted) - from);
}

}  // namespace

int str::value() const {
    int const i = number_start(*this);
    if ((*this)[i] == '-')
        return static_cast<int>(0u - digits_from(*this, i + 1));
    return static_cast<int>(digits_from(*this, i));
}

unsigned int str::unsigned_value() const {
    return digits_from(*this, number_start(*this));
}

bool str::is_number() const {
    int i = skip_blanks(*this, 0);
    if ((*this)[i] == '-')
        ++i;
    int const first_digit = i;
    while (digit((*this)[i]))
        ++i;
    return i > first_digit && skip_blanks(*this, i) == length();
}

bool str::one_of(unsigned char c, str const& set) {
    return std::memchr(set.cbuffer(), c, static_cast<std::size_t>(set.length())) != nullptr;
}

str str::strip(str const& set) const {
    return strip_both(*this, [&](unsigned char c) { return one_of(c, set); });
}

str str::strip(char c) const {
    return strip_both(*this, [c](unsigned char byte) { return byte == static_cast<unsigned char>(c); });
}

str str::strip_leading(str const& set) const {
    return substr(run_end(*this, 0, [&](unsigned char c) { return one_of(c, set); }));
}

str str::strip_trailing(str const& set) const {
    return leftstr(strip_end(*this, [&](unsigned char c) { return one_of(c, set); }));
}

str str::get_field(int n, str const& separators) const {
    auto const separator = [&](unsigned char c) { return one_of(c, separators); };
    int const from = field_start(*this, n, separator);
    int const to = run_end(*this, from, [&](unsigned char c) { return !separator(c); });
    return substr(from, to - from);
}

str str::get_field(int n, char sep) const {
    auto const own = static_cast<unsigned char>(sep);
    int const from = field_start(*this, n, [own](unsigned char c) { return c == own; });
    int const to =
        run_end(*this, from, [own](unsigned char c) { return c != own && c != '\r' && c != '\n'; });
    return substr(from, to - from);
}

str str::get_rest(int n, char sep) const {
    auto const own = static_cast<unsigned char>(sep);
    return substr(field_start(*this, n, [own](unsigned char c) { return c == own; }));
}

std::uint16_t str2int16(str const& data) {
    unsigned char const bytes[] = {data[0], data[1]};
    return wire::get16(bytes);
}

std::uint32_t str2uint32(str const& data) {
    unsigned char const bytes[] = {data[0], data[1], data[2], data[3]};
    return wire::get32(bytes);
}
