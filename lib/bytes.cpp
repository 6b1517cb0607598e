#include "lib/bytes.h"

#include <algorithm>
#include <cstring>

#include "lib/wire.h"

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
    unsigned char word[4];
    wire::put32(word, value);
    int const used = std::clamp(n, 0, 4);
    std::memcpy(data.buffer() + n - used, word + 4 - used, static_cast<size_t>(used));
    return data;
}

int str2int(str const& data) {
    str const word = str('\0', 4 - data.length()) + data.rightstr(4);
    return static_cast<int>(str2uint32(word));
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
