// Text taken apart: numbers, fields, lines, records.

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
    int const to = run_end(*this, from, [own](unsigned char c) { return c != own && c != '\r' && c != '\n'; });
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
    if (data.length() >= 4)
        return wire::get32(data.cbuffer());
    unsigned char const bytes[] = {data[0], data[1], data[2], data[3]};
    return wire::get32(bytes);
}

// ---- lines and records

namespace {

bool line_end_byte(int c) {
    return c == '\r' || c == '\n';
}

/// First byte behind the next line end at or after `pos`; the length when there is none. With fold, a CR LF in
/// front of a blank or tab is not one.
int next_line(str const& text, int pos, bool fold) {
    unsigned char const* const bytes = text.cbuffer();
    while (pos < text.length()) {
        unsigned char const c = bytes[pos++];
        if (!line_end_byte(c))
            continue;
        bool const pair = pos < text.length() && line_end_byte(bytes[pos]) && bytes[pos] != c;
        if (pair)
            ++pos;
        bool const continued = fold && pair && c == '\r' && (text[pos] == ' ' || text[pos] == '\t');
        if (!continued)
            break;
    }
    return pos;
}

/// Where a record stands in a text; end is behind its line end. start equals end when there is none.
struct record_place {
    int start;
    int end;
};

/// The first line whose name, as `name_of` takes it from the line, is one of the two.
template <typename name_function>
record_place find_record(str const& text, str const& name, str const& alt_name, name_function name_of) {
    for (int start = 0; start < text.length();) {
        int const end = next_line(text, start, true);
        str const found = name_of(text.substr(start, end - start));
        if (found.icmp(name) || (!alt_name.empty() && found.icmp(alt_name)))
            return {start, end};
        start = end;
    }
    return {text.length(), text.length()};
}

}  // namespace

int str::first_letter_of_line(int n, bool fold) const {
    int pos = 0;
    for (; n > 0 && pos < length(); --n)
        pos = next_line(*this, pos, fold);
    return pos;
}

int str::last_letter_of_line(int, bool) const {
    int pos = length();
    while (pos > 0 && line_end_byte((*this)[pos - 1]))
        --pos;
    return pos;
}

str str::get_line(int n) const {
    if (n < 0)
        return str();
    str line = substr(first_letter_of_line(n, false));
    return line.take_line();
}

str str::take_line() {
    str const line = leftstr(next_line(*this, 0, false));
    *this = substr(line.length());
    return line.leftstr(line.last_letter_of_line(0, false));
}

str str::get_record(str const& name, str const& alt_name, char sep, str const& strip_set) const {
    auto const stripped_name = [&](str const& line) { return line.get_field(0, sep).strip(strip_set); };
    record_place const place = find_record(*this, name, alt_name, stripped_name);
    str const line = substr(place.start, place.end - place.start);
    return line.leftstr(line.last_letter_of_line(0, false));
}

str str::get_record_content(str const& name, str const& alt_name, char sep, str const& strip_set) const {
    str const line = get_record(name, alt_name, sep, strip_set);
    int const separator = line.find(str(sep, 1));
    return separator < 0 ? str() : line.substr(separator + 1).strip(strip_set);
}

str str::set_record_content(str const& name, str const& alt_name, str const& value, char sep, str const& prefix) const {
    auto const written_name = [sep](str const& line) { return line.get_field(0, sep); };
    record_place place = find_record(*this, name, alt_name, written_name);
    str record = name;
    if (place.start < place.end) {
        record = written_name(substr(place.start, place.end - place.start));
    } else {
        int const text_end = last_letter_of_line(0, false);
        int const at = text_end == 0 ? 0 : next_line(*this, text_end, false);
        place = {at, at};
    }
    record += sep;
    record += prefix;
    record += value;
    record += crlf;
    str const before = leftstr(place.start);
    bool const unfinished = !before.empty() && !line_end_byte(before[before.length() - 1]);
    return (unfinished ? before + crlf : before) + record + substr(place.end);
}
