// Takes big-endian numbers off the front of a byte range. Beyond the end it gives zeros and remembers that it did.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/protocol/hex.h"

namespace rtcp_view {

class byte_reader {
public:
    explicit byte_reader(protocol::byte_view data) : rest(data) {}

    std::size_t left() const { return rest.size(); }
    bool ran_out() const { return overrun; }

    std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
    std::uint32_t u32() { return number(4); }

    // The next `count` bytes, or those that are left.
    protocol::byte_view take(std::size_t count) {
        overrun = overrun || count > rest.size();
        protocol::byte_view const taken = rest.first(std::min(count, rest.size()));
        rest = rest.subspan(taken.size());
        return taken;
    }
    protocol::bytes take_bytes(std::size_t count) {
        protocol::byte_view const taken = take(count);
        return {taken.begin(), taken.end()};
    }
    protocol::bytes take_rest() { return take_bytes(rest.size()); }
    std::string take_text(std::size_t count) {
        protocol::byte_view const taken = take(count);
        return {taken.begin(), taken.end()};
    }

private:
    std::uint32_t number(std::size_t count) {
        protocol::byte_view const taken = take(count);
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < count; ++i)
            value = value << 8 | (i < taken.size() ? taken[i] : 0U);
        return value;
    }

    protocol::byte_view rest;
    bool overrun = false;
};

}  // namespace rtcp_view
