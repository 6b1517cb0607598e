#pragma once

#include <cstdint>

#include "lib/str.h"

/// Puts a byte string together from fields, one after the other; integers are big-endian, of each the low bits count.
class byte_writer {
public:
    byte_writer& put8(std::uint32_t value);
    byte_writer& put16(std::uint32_t value);
    byte_writer& put24(std::uint32_t value);
    byte_writer& put32(std::uint32_t value);
    byte_writer& put(str const& bytes);

    str const& get() const { return bytes_put; }

private:
    byte_writer& put_last(std::uint32_t value, int bytes);

    str bytes_put;
};
