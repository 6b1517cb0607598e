#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

/// A packet or a piece of a stream.
using octets = std::vector<std::uint8_t>;

/// A descriptor that is closed with its owner. Move-only.
class descriptor {
public:
    explicit descriptor(int number = -1) : fd(number) {}
    descriptor(descriptor&& other) noexcept : fd(other.release()) {}
    descriptor& operator=(descriptor&& other) noexcept;
    ~descriptor();

    int get() const { return fd; }
    bool open() const { return fd >= 0; }

private:
    int release();
    int fd;
};

/// A UDP socket bound to 127.0.0.1; throws std::runtime_error.
descriptor bind_udp(int port);
/// A listening TCP socket on 127.0.0.1; throws std::runtime_error.
descriptor listen_tcp(int port);
