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

/// What the linker puts in place of ioctl() (--wrap). The request is an int in some C libraries.
extern "C" int __wrap_ioctl(int fd, unsigned number, ...) {
    va_list arguments;
    va_start(arguments, number);
    unsigned long const argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    if ((number & ~0xFFFFu) != 0x20000000)
        return static_cast<int>(syscall(SYS_ioctl, fd, number, argument));
    driver_spy::seen.push_back({number, argument, fd, fcntl(fd, F_GETFL) & O_ACCMODE,
                                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd))});
    return driver_spy::answer;
}

/// The name that ioctl() has in 32-bit programs with 64-bit time.
extern "C" int __wrap___ioctl_time64(int, unsigned, ...) __attribute__((alias("__wrap_ioctl")));
