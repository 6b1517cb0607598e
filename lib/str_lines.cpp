#include "lib/str.h"

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

str str::set_record_content(str const& name, str const& alt_name, str const& value, char sep,
                            str const& prefix) const {
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
