#pragma once

#include <cstdint>

/// Unsigned integers as they stand on the wire: big-endian, at any address, whatever the machine's own order is.
/// Whoever reads or writes bytes of a protocol does it here.
namespace wire {

/// The first 2, 3, 4 and 8 bytes.
constexpr std::uint16_t get16(unsigned char const* in) {
    return static_cast<std::uint16_t>(in[0] << 8 | in[1]);
}
constexpr std::uint32_t get24(unsigned char const* in) {
    return static_cast<std::uint32_t>(get16(in)) << 8 | in[2];
}
constexpr std::uint32_t get32(unsigned char const* in) {
    return static_cast<std::uint32_t>(get16(in)) << 16 | get16(in + 2);
}
constexpr std::uint64_t get64(unsigned char const* in) {
    return static_cast<std::uint64_t>(get32(in)) << 32 | get32(in + 4);
}

/// Write the low 16, 24, 32 and 64 bits of the value.
constexpr void put16(unsigned char* out, std::uint32_t value) {
    out[0] = static_cast<unsigned char>(value >> 8);
    out[1] = static_cast<unsigned char>(value);
}
constexpr void put24(unsigned char* out, std::uint32_t value) {
    out[0] = static_cast<unsigned char>(value >> 16);
    put16(out + 1, value);
}
constexpr void put32(unsigned char* out, std::uint32_t value) {
    put16(out, value >> 16);
    put16(out + 2, value);
}
constexpr void put64(unsigned char* out, std::uint64_t value) {
    put32(out, static_cast<std::uint32_t>(value >> 32));
    put32(out + 4, static_cast<std::uint32_t>(value));
}

}  // namespace wire
