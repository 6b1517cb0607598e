#include "tools/fxsline/signal_device.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fxsline {

namespace {

constexpr size_t most_bytes = 1024;  // of one receive()

// Without line editing and echo from the first byte on, also before the process sets its own attributes.
void make_raw(int fd) {
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
}

bool leads_to_terminal(std::string const& link) {
    std::error_code error;
    return std::filesystem::read_symlink(link, error).string().starts_with("/dev/pts/");
}

}  // namespace

signal_device::~signal_device() {
    if (!path.empty())
        unlink(path.c_str());
    for (int fd : {slave, master})
        if (fd >= 0)
            close(fd);
}

std::string signal_device::create(std::string const& link) {
    master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    char name[64];
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, name, sizeof name) != 0 || (slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC)) < 0)
        return std::string("can't make a pseudo-terminal: ") + std::strerror(errno);
    make_raw(slave);
    if (leads_to_terminal(link))
        unlink(link.c_str());
    if (symlink(name, link.c_str()) != 0)
        return "can't create the link " + link + ": " + std::strerror(errno);
    path = link;
    return {};
}

std::vector<uint8_t> signal_device::receive() {
    std::vector<uint8_t> bytes(most_bytes);
    ssize_t const count = read(master, bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

size_t signal_device::send(std::span<uint8_t const> bytes) {
    ssize_t const count = write(master, bytes.data(), bytes.size());
    return count > 0 ? static_cast<size_t>(count) : 0;
}

}  // namespace fxsline
