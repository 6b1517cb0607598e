#include "lib/byte_writer.h"

#include "lib/wire.h"

byte_writer& byte_writer::put_last(std::uint32_t value, int bytes) {
    unsigned char all[4];
    wire::put32(all, value);
    bytes_put.append(all + sizeof all - bytes, bytes);
    return *this;
}

byte_writer& byte_writer::put8(std::uint32_t value) {
    return put_last(value, 1);
}

byte_writer& byte_writer::put16(std::uint32_t value) {
    return put_last(value, 2);
}

byte_writer& byte_writer::put24(std::uint32_t value) {
    return put_last(value, 3);
}

byte_writer& byte_writer::put32(std::uint32_t value) {
    return put_last(value, 4);
}

byte_writer& byte_writer::put(str const& bytes) {
    bytes_put += bytes;
    return *this;
}
