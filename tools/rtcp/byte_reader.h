#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "lib/wire.h"
#include "tools/protocol/bytes.h"

namespace rtcp_view {

/// Reads big-endian numbers from a byte range, one after the other. Beyond the end it gives zeros, and ran_out() says
/// so.
class byte_reader {
public:
    explicit byte_reader(protocol::byte_view data) : rest(data) {}

    std::size_t left() const { return rest.size(); }
    bool ran_out() const { return overrun; }

    std::uint8_t u8() { return next<1>()[0]; }
    std::uint16_t u16() { return wire::get16(next<2>().data()); }
    std::uint32_t u32() { return wire::get32(next<4>().data()); }

    /// The next `count` bytes, or those that are left.
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
    template <std::size_t count>
    std::array<std::uint8_t, count> next() {
        std::array<std::uint8_t, count> found{};
        std::ranges::copy(take(count), found.begin());
        return found;
    }

    protocol::byte_view rest;
    bool overrun = false;
};

}  // namespace rtcp_view
