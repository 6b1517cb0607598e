// Address text from options, against inet_pton() and inet_ntop().
//
// The input is the text; its first 16 bytes are an address as well.

#include <arpa/inet.h>

#include <algorithm>

#include "fuzz/fuzz_target.h"
#include "lib/address.h"
#include "tests/support/bytes.h"

namespace {

/// The text as the C library reads it; empty when it does not.
str standard(int family, std::string const& text) {
    unsigned char bytes[16];
    if (text.size() >= INET6_ADDRSTRLEN || inet_pton(family, text.c_str(), bytes) != 1)
        return str();
    return str(bytes, family == AF_INET ? 4 : 16);
}

/// A gap of one group at an end is not taken back.
bool has_nine_groups(std::string const& text) {
    return std::count(text.begin(), text.end(), ':') == 8;
}

void check_bytes(int family, str const& address) {
    str const text = utils::readable_ip(address, false);
    FUZZ_CHECK(standard(family, to_string(text)) == address);
    bool const back = utils::compact_ip(text) == address;
    FUZZ_CHECK(back || has_nine_groups(to_string(text)));
    FUZZ_CHECK(utils::compact_ip(utils::readable_ip(address, true)) == utils::compact_ip(text));
    FUZZ_CHECK(!utils::is_host_name(text));
    ip_port const endpoint(address, 65535);
    FUZZ_CHECK(to_string(utils::readable_ip(endpoint)) ==
               (family == AF_INET ? to_string(text) : "[" + to_string(text) + "]") + ":65535");
}

}  // namespace

FUZZ_TARGET(address) {
    str const bytes = input.rest();
    if (bytes.length() >= 16) {
        check_bytes(AF_INET, bytes.leftstr(4));
        check_bytes(AF_INET6, bytes.leftstr(16));
    }
    std::string const text = to_string(bytes);
    str const compact = utils::compact_ip(bytes);
    FUZZ_CHECK(utils::ipv4(compact) || compact.length() >= 16);
    FUZZ_CHECK(compact.length() <= std::max(16, 2 * bytes.length() + 2));
    bool const plain = text.find('\0') == std::string::npos;
    if (str const v4 = standard(AF_INET, text); plain && !v4.empty())
        FUZZ_CHECK(compact == v4 && !utils::is_host_name(bytes));
    // An embedded IPv4 address is not understood.
    str const v6 = standard(AF_INET6, text);
    if (plain && !v6.empty() && text.find('.') == std::string::npos) {
        FUZZ_CHECK(has_nine_groups(text) ? compact.length() == 18 : compact == v6);
        FUZZ_CHECK(!utils::is_host_name(bytes));
    }
}
