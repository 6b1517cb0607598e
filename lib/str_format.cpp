#include <cstdarg>
#include <cstring>

#include "lib/str.h"
#include "lib/wire.h"

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
