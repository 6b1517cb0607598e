// The text helpers of str against standard strings.
//
// 1 byte of a number, 1 byte of a separator, a set, a name and a value of 1 byte of length each; the rest is the text.

#include <algorithm>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "lib/bytes.h"
#include "tests/support/bytes.h"

namespace {

using string = std::string;
constexpr std::size_t npos = string::npos;

string stripped(string const& s, string const& set) {
    std::size_t const from = s.find_first_not_of(set);
    return set.empty() ? s : from == npos ? "" : s.substr(from, s.find_last_not_of(set) - from + 1);
}

/// Where fields begin, and the end of the text.
std::vector<std::size_t> field_starts(string const& s, string const& set) {
    std::vector<std::size_t> starts;
    for (std::size_t at = s.find_first_not_of(set); at != npos;
         at = s.find_first_not_of(set, s.find_first_of(set, at))) {
        starts.push_back(at);
        if (s.find_first_of(set, at) == npos)
            break;
    }
    starts.push_back(s.size());
    return starts;
}

void check_fields(str const& s, string const& m, unsigned n, string const& set, char sep) {
    auto const from = [n](std::vector<std::size_t> const& starts) {
        return starts[std::min<std::size_t>(n, starts.size() - 1)];
    };
    auto const up_to = [](string const& t, string const& ends) { return t.substr(0, t.find_first_of(ends)); };
    int const field = static_cast<int>(n);
    string const one(1, sep), rest = m.substr(from(field_starts(m, one)));
    FUZZ_CHECK(to_string(s.get_field(field, to_str(set))) == up_to(m.substr(from(field_starts(m, set))), set));
    FUZZ_CHECK(to_string(s.get_field(field, sep)) == up_to(rest, one + "\r\n"));
    FUZZ_CHECK(to_string(s.get_rest(field, sep)) == rest);
}

void check_numbers(str const& s, string const& m) {
    std::size_t at = std::min(m.find_first_not_of(" \t"), m.size());
    auto const run = [&](std::size_t begin) {
        return m.substr(begin, m.find_first_not_of("0123456789", begin) - begin);
    };
    bool const minus = m[at] == '-';
    string const digits = run(std::min(at + minus, m.size()));
    std::size_t const behind = at + minus + digits.size();
    FUZZ_CHECK(s.is_number() == (!digits.empty() && m.find_first_not_of(" \t", behind) == npos));
    at = std::min(at + (m[at] == '+'), m.size());
    bool const negative = m[at] == '-';
    std::uint32_t value = 0;
    for (char const c : run(std::min(at + negative, m.size())))
        value = value * 10 + static_cast<std::uint32_t>(c - '0');
    FUZZ_CHECK(s.value() == static_cast<int>(negative ? 0 - value : value));
    FUZZ_CHECK(s.unsigned_value() == (negative ? 0 : value));
}

/// The lines of a text, without their ends.
std::vector<string> lines_of(string const& m) {
    std::vector<string> lines{""};
    for (std::size_t i = 0; i < m.size(); i++) {
        bool const end = m[i] == '\r' || m[i] == '\n';
        if (end && i + 1 < m.size() && (m[i + 1] ^ m[i]) == ('\r' ^ '\n'))
            i++;
        end ? lines.push_back("") : lines.back().push_back(m[i]);
    }
    return lines;
}

void check_lines(str const& s, string const& m, unsigned n) {
    std::vector<string> const lines = lines_of(m);
    FUZZ_CHECK(to_string(s.get_line(static_cast<int>(n))) == (n < lines.size() ? lines[n] : ""));
    str rest = s;
    for (string const& line : lines)
        FUZZ_CHECK(to_string(rest.take_line()) == line);
    FUZZ_CHECK(rest.empty());
    int const folded = s.first_letter_of_line(static_cast<int>(n), true);
    FUZZ_CHECK(folded >= s.first_letter_of_line(static_cast<int>(n), false) && folded <= s.length());
    string const header = to_string(utils::get_header(s));
    std::size_t const blank = std::min({m.find("\r\r"), m.find("\n\n"), m.find("\r\n\r\n")});
    FUZZ_CHECK(header == (blank == npos ? m : m.substr(0, blank + (m[blank + 1] == m[blank] ? 2 : 4))));
    FUZZ_CHECK(to_string(utils::get_body(s)) ==
               m.substr(std::min(m.find_first_not_of(string(" \t\r\n\0", 5), header.size()), m.size())));
}

/// What is set is found again, and nothing else is touched.
void check_records(str const& s, str const& name, str const& value, char sep) {
    str const line = s.get_record(name, str::null, sep, str::lws);
    FUZZ_CHECK(line.empty() || line.get_field(0, sep).strip(str::lws).icmp(name));
    str const content = s.get_record_content(name, str::null, sep, str::lws);
    FUZZ_CHECK(content == content.strip(str::lws) && line.find(content) >= (content.empty() ? -1 : 0));
    // A line that begins with a blank may continue the one before it.
    std::vector<string> const lines = lines_of(to_string(s));
    if (std::any_of(lines.begin(), lines.end(), [](string const& l) { return l[0] == ' ' || l[0] == '\t'; }))
        return;
    bool const clean = to_string(name + value).find_first_of(string("\r\n") + sep) == npos && !name.empty() &&
                       name.strip(str::lws) == name;
    if (sep == '\r' || sep == '\n' || !clean)
        return;
    str const changed = s.set_record_content(name, str::null, value, sep, str::space);
    FUZZ_CHECK(changed.get_record_content(name, str::null, sep, str::null) == str::space + value);
    FUZZ_CHECK(changed.set_record_content(name, str::null, value, sep, str::space) == changed);
}

void check_bytes(str const& s, string const& m, str const& other, unsigned key) {
    string const o = to_string(other);
    std::size_t const found = m.find(o);
    FUZZ_CHECK(s.find(other) == (m.empty() || found == npos ? -1 : static_cast<int>(found)));
    FUZZ_CHECK((s < other) == (m < o) && (s == other) == (m == o));
    FUZZ_CHECK(to_string(s.rightstr(static_cast<int>(key))) ==
               m.substr(m.size() - std::min<std::size_t>(key, m.size())));
    FUZZ_CHECK(to_string(utils::bin2hex(s, true)) == to_hex(m));
    FUZZ_CHECK(str::lower_case(s).icmp(s));
    str changed = s;
    changed.l_xor(static_cast<unsigned char>(key), s.length());
    FUZZ_CHECK((changed == s) == (key == 0 || m.empty()));
    changed.l_xor(static_cast<unsigned char>(key), s.length());
    changed.compress();
    FUZZ_CHECK(changed == s && (s ^ s) == str('\0', s.length()) && (s & s) == s && (!!!s) == !s);
    std::uint32_t last = 0;
    for (char const c : m)
        last = last << 8 | static_cast<unsigned char>(c);
    FUZZ_CHECK(utils::str2int(s) == static_cast<int>(last));
}

}  // namespace

FUZZ_TARGET(text) {
    unsigned const n = input.byte();
    char const sep = static_cast<char>(input.byte());
    str const set = input.bytes(input.byte()), name = input.bytes(input.byte()), value = input.bytes(input.byte());
    str const s = input.rest();
    string const m = to_string(s), separators = to_string(set);
    FUZZ_CHECK(to_string(s.strip(set)) == stripped(m, separators));
    FUZZ_CHECK(to_string(s.strip(sep)) == stripped(m, string(1, sep)));
    FUZZ_CHECK(s.strip_leading(set).strip_trailing(set) == s.strip(set));
    check_fields(s, m, n % 40, separators, sep);
    check_numbers(s, m);
    check_lines(s, m, n % 40);
    check_records(s, name, value, sep);
    check_bytes(s, m, name, n);
    FUZZ_CHECK(to_string(s) == m);
}
