#include "tests/control/driver_spy.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>
#include <utility>

std::vector<driver_spy::request> driver_spy::seen;
int driver_spy::answer = 0;

std::vector<driver_spy::request> driver_spy::take() {
    return std::exchange(seen, {});
}

extern "C" int ioctl(int fd, unsigned long number, ...) noexcept {
    va_list arguments;
    va_start(arguments, number);
    unsigned long const argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    if ((number & ~0xFFFFul) != 0x20000000)
        return static_cast<int>(syscall(SYS_ioctl, fd, number, argument));
    driver_spy::seen.push_back({number, argument, fd, fcntl(fd, F_GETFL) & O_ACCMODE,
                                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd))});
    return driver_spy::answer;
}
