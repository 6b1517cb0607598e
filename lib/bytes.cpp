#include "lib/bytes.h"

namespace utils {

str content_length("content-length");
str compact_content_length("l");

str bin2hex(str const& data, bool upper) {
    char const* const digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    int const n = data.length();
    str text;
    text.writable(2 * n);
    unsigned char* out = text.buffer();
    unsigned char const* const in = data.cbuffer();
    for (int i = 0; i < n; i++) {
        *out++ = static_cast<unsigned char>(digits[in[i] >> 4]);
        *out++ = static_cast<unsigned char>(digits[in[i] & 15]);
    }
    return text;
}

str int2str(unsigned value, int n) {
    str data(static_cast<unsigned char>(0), n);
    unsigned char* const out = data.buffer();
    for (int i = n - 1; i >= 0; i--, value >>= 8)
        out[i] = static_cast<unsigned char>(value);
    return data;
}

int str2int(str const& data) {
    unsigned value = 0;
    unsigned char const* const in = data.cbuffer();
    for (int i = 0; i < data.length(); i++)
        value = value << 8 | in[i];
    return static_cast<int>(value);
}

int get_leading_whitespace(str const& data) {
    int n = 0;
    while (n < data.length() && (data[n] == 0 || str::one_of(data[n], str::lws)))
        n++;
    return n;
}

int get_body_pos(str const& message) {
    for (int i = 0; i + 1 < message.length(); i++) {
        unsigned char const c = message[i];
        if ((c == '\r' || c == '\n') && message[i + 1] == c)
            return i + 2;
        if (c == '\r' && message[i + 1] == '\n' && message[i + 2] == '\r' && message[i + 3] == '\n')
            return i + 4;
    }
    return message.length();
}

str get_header(str const& message) {
    return message.leftstr(get_body_pos(message));
}

str get_body(str const& message) {
    str const body = message.substr(get_body_pos(message));
    return body.substr(get_leading_whitespace(body));
}

}  // namespace utils
