#include "lib/str.h"

#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "lib/wipe.h"
#include "lib/wire.h"

unsigned char str::nothing[16];

// ---- constants

namespace {

/// A block outside the pool, as large as one of its smallest class, so that a constant needs no code at start-up
/// and is usable in every other file's start-up code.
struct constant_block {
    str::reference head;
    unsigned char bytes[16];
};

template <int n>
constexpr constant_block block_of(char const (&text)[n]) {
    constant_block block{{{nullptr}, sizeof(block.bytes), 0}, {}};
    for (int i = 0; i < n - 1; ++i)
        block.bytes[i] = static_cast<unsigned char>(text[i]);
    return block;
}

constinit constant_block lws_block = block_of(" \t\r\n");
constinit constant_block crlf_block = block_of("\r\n");
constinit constant_block space_block = block_of(" ");
constinit constant_block newline_block = block_of("\n");
constinit constant_block true_block = block_of("true");
constinit constant_block false_block = block_of("false");
constinit constant_block x_00_block = block_of("\x00");
constinit constant_block x_01_block = block_of("\x01");
constinit constant_block x_ff_block = block_of("\xFF");
constinit constant_block file_block = block_of("file");
constinit constant_block dir_block = block_of("dir");
constinit constant_block backslash_block = block_of("\\");
constinit constant_block slash_block = block_of("/");
constinit constant_block dot_block = block_of(".");
constinit constant_block dot_dot_block = block_of("..");

}  // namespace

constinit str str::null;
constinit str str::lws(lws_block.head, 4);
constinit str str::crlf(crlf_block.head, 2);
constinit str str::space(space_block.head, 1);
constinit str str::newline(newline_block.head, 1);
constinit str str::t(true_block.head, 4);
constinit str str::f(false_block.head, 5);
constinit str str::x_00(x_00_block.head, 1);
constinit str str::x_01(x_01_block.head, 1);
constinit str str::x_FF(x_ff_block.head, 1);
constinit str str::c_file(file_block.head, 4);
constinit str str::c_dir(dir_block.head, 3);
constinit str str::backslash(backslash_block.head, 1);
constinit str str::slash(slash_block.head, 1);
constinit str str::dot(dot_block.head, 1);
constinit str str::dot_dot(dot_dot_block.head, 2);

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

str str::take_secret() {
    str copy(cbuffer(), length());
    copy.keep_secret();
    if (ref)
        wipe(ref->data() + start, bytes(length()));
    return copy;
}

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
    if (ref)
        block->flags |= ref->flags & flag_secret;
    drop();
    ref = block;
    start = 0;
    end = used + n;
}

void str::writable_front(int n) {
    if (n < 1)
        return;
    if (!ref || !alone() || n > start) {
        str grown(nullptr, n);
        if (ref)
            grown += *this;
        *this = std::move(grown);
    } else {
        start -= n;
    }
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
        ref->flags |= other.ref->flags & flag_secret;
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
    if (is_secret() || other.is_secret())
        sum.keep_secret();
    return sum;
}

// ---- formatting

namespace {

constexpr int max_digits = 10;  // of a 32-bit value

/// Decimal digits, at least `width` of them (none added for widths above max_digits).
void append_decimal(str& text, unsigned value, int width) {
    unsigned char digits[max_digits];
    int first = max_digits;
    do {
        digits[--first] = static_cast<unsigned char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    if (width <= max_digits) {
        while (max_digits - first < width)
            digits[--first] = '0';
    }
    text.append(digits + first, max_digits - first);
}

str hex_of_bytes(str const& data, char const* digits) {
    str text(nullptr, 2 * data.length());
    unsigned char* out = text.buffer();
    unsigned char const* const in = data.cbuffer();
    for (int i = 0; i < data.length(); ++i) {
        *out++ = static_cast<unsigned char>(digits[in[i] >> 4]);
        *out++ = static_cast<unsigned char>(digits[in[i] & 15]);
    }
    if (data.is_secret())
        text.keep_secret();
    return text;
}

constexpr char lower_digits[] = "0123456789abcdef";
constexpr char upper_digits[] = "0123456789ABCDEF";

/// The low 16 bits as four digits; the higher ones are lost.
str hex_of_number(unsigned value) {
    unsigned char bytes[2];
    wire::put16(bytes, value);
    return hex_of_bytes(str(bytes, sizeof bytes), upper_digits);
}

str padded_left(str const& text, int width) {
    return str(' ', width - text.length()) + text;
}

}  // namespace

str::str(int value, int width) : str() {
    if (value < 0) {
        *this += '-';
        append_decimal(*this, 0u - static_cast<unsigned>(value), width < 0 ? width : width - 1);
    } else {
        append_decimal(*this, static_cast<unsigned>(value), width);
    }
}

str::str(unsigned int value, int width) : str() {
    append_decimal(*this, value, width);
}

str str::sprintf(char const* format, ...) {
    str text;
    if (!format)
        return text;
    va_list arguments;
    va_start(arguments, format);
    while (*format) {
        if (*format != '%') {
            std::size_t const run = std::strcspn(format, "%");
            text.append(reinterpret_cast<unsigned char const*>(format), static_cast<int>(run));
            format += run;
            continue;
        }
        bool const zero_flag = *++format == '0';
        unsigned digits = 0;
        for (; *format >= '0' && *format <= '9'; ++format)
            digits = digits * 10 + static_cast<unsigned>(*format - '0');
        int const width = static_cast<int>(digits);
        switch (*format) {
            case 'd': {
                str const number(va_arg(arguments, int), width);
                text += zero_flag ? number : padded_left(number, width);
                break;
            }
            case 'u': text += str(va_arg(arguments, unsigned), 0); break;
            case 'c': text += static_cast<unsigned char>(va_arg(arguments, int)); break;
            case 's': text += *va_arg(arguments, str const*); break;
            case 'S': text += str(va_arg(arguments, char const*)); break;
            case 'x': text += hex_of_number(va_arg(arguments, unsigned)); break;
            case 'h': text += hex_of_bytes(*va_arg(arguments, str const*), lower_digits); break;
            case 'H': text += hex_of_bytes(*va_arg(arguments, str const*), upper_digits); break;
            case '%': text += '%'; break;
            default: break;
        }
        if (*format)
            ++format;
    }
    va_end(arguments);
    return text;
}
