// The system calls of the process, as --wrap redirects them: to the simulated kernel while there is one, for its
// descriptors and paths; else to the system.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/times.h>
#include <termios.h>
#include <unistd.h>

#include "tests/sim/kernel.h"

constinit sim::kernel* sim::running = nullptr;

void sim::take_over(kernel* answering) {
    running = answering;
}

namespace {

using sim::running;

bool ours(int fd) {
    return running && sim::kernel::owns(fd);
}

template <typename number>
number answer(number result) {
    if (result >= 0)
        return result;
    errno = static_cast<int>(-result);
    return -1;
}

sim::endpoint from_address(sockaddr const* address) {
    sim::endpoint e;
    if (address->sa_family == AF_INET6) {
        sockaddr_in6 in;
        std::memcpy(&in, address, sizeof in);
        std::memcpy(e.address.data(), &in.sin6_addr, e.size = 16);
        e.port = ntohs(in.sin6_port);
    } else if (address->sa_family == AF_INET) {
        sockaddr_in in;
        std::memcpy(&in, address, sizeof in);
        std::memcpy(e.address.data(), &in.sin_addr, e.size = 4);
        e.port = ntohs(in.sin_port);
    }
    return e;
}

void to_address(sim::endpoint const& e, sockaddr* address, socklen_t* length) {
    if (e.size == 16) {
        sockaddr_in6 in6{};
        in6.sin6_family = AF_INET6;
        in6.sin6_port = htons(e.port);
        std::memcpy(&in6.sin6_addr, e.address.data(), 16);
        std::memcpy(address, &in6, *length = sizeof in6);
    } else {
        sockaddr_in in{};
        in.sin_family = AF_INET;
        in.sin_port = htons(e.port);
        std::memcpy(&in.sin_addr, e.address.data(), 4);
        std::memcpy(address, &in, *length = sizeof in);
    }
}

timeval to_timeval(std::int64_t ns) {
    timeval t{};
    t.tv_sec = static_cast<decltype(t.tv_sec)>(ns / sim::second);
    t.tv_usec = static_cast<decltype(t.tv_usec)>(ns % sim::second / sim::us);
    return t;
}

std::string_view view(void const* data, std::size_t size) {
    return {static_cast<char const*>(data), size};
}

}  // namespace

extern "C" {

int __real_open(char const*, int, ...);
int __real_close(int);
ssize_t __real_read(int, void*, size_t);
ssize_t __real_write(int, void const*, size_t);
int __real_ioctl(int, unsigned long, ...);
int __real_socket(int, int, int);
int __real_bind(int, sockaddr const*, socklen_t);
int __real_connect(int, sockaddr const*, socklen_t);
int __real_setsockopt(int, int, int, void const*, socklen_t);
int __real_getsockname(int, sockaddr*, socklen_t*);
ssize_t __real_sendto(int, void const*, size_t, int, sockaddr const*, socklen_t);
ssize_t __real_recvfrom(int, void*, size_t, int, sockaddr*, socklen_t*);
ssize_t __real_send(int, void const*, size_t, int);
ssize_t __real_recv(int, void*, size_t, int);
int __real_select(int, fd_set*, fd_set*, fd_set*, timeval*);
int __real_poll(pollfd*, nfds_t, int);
int __real_gettimeofday(timeval*, void*);
clock_t __real_times(tms*);
ssize_t __real_getrandom(void*, size_t, unsigned);
int __real_rand();
void __real_srand(unsigned);
long __real_syscall(long, ...);
int __real_tcgetattr(int, termios*);
int __real_tcsetattr(int, int, termios const*);

int __wrap_open(char const* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    int const mode = (flags & O_CREAT) != 0 ? va_arg(more, int) : 0;
    va_end(more);
    if (running && sim::kernel::owns(path))
        return answer(running->open(path));
    return __real_open(path, flags, mode);
}

int __wrap_close(int fd) {
    return ours(fd) ? answer(running->close(fd)) : __real_close(fd);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    return ours(fd) ? answer<ssize_t>(running->read(fd, buffer, size)) : __real_read(fd, buffer, size);
}

ssize_t __wrap_write(int fd, void const* data, size_t size) {
    return ours(fd) ? answer<ssize_t>(running->write(fd, view(data, size))) : __real_write(fd, data, size);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list more;
    va_start(more, request);
    void* const argument = va_arg(more, void*);
    va_end(more);
    if (!ours(fd))
        return __real_ioctl(fd, request, argument);
    switch (static_cast<unsigned>(request)) {
        case static_cast<unsigned>(FIONBIO): return 0;
        case static_cast<unsigned>(SIOCGSTAMP_OLD): {
            std::int64_t stamp = 0;
            int const result = running->stamp(fd, stamp);
            timeval const time = to_timeval(stamp);
            long const words[2] = {static_cast<long>(time.tv_sec), static_cast<long>(time.tv_usec)};
            if (result == 0)
                std::memcpy(argument, words, sizeof words);
            return answer(result);
        }
        default: return answer(running->line_request(fd, static_cast<unsigned>(request)));
    }
}

int __wrap_socket(int family, int type, int protocol) {
    return running ? answer(running->socket(family, type)) : __real_socket(family, type, protocol);
}

int __wrap_bind(int fd, sockaddr const* address, socklen_t length) {
    if (!ours(fd))
        return __real_bind(fd, address, length);
    sim::endpoint const local = from_address(address);
    return answer(running->bind(fd, local, local.size == 4 && local.address[0] == 127));
}

int __wrap_connect(int fd, sockaddr const* address, socklen_t length) {
    return ours(fd) ? answer(running->connect(fd, from_address(address)))
                    : __real_connect(fd, address, length);
}

int __wrap_setsockopt(int fd, int level, int option, void const* value, socklen_t length) {
    return ours(fd) ? 0 : __real_setsockopt(fd, level, option, value, length);
}

int __wrap_getsockname(int fd, sockaddr* address, socklen_t* length) {
    if (!ours(fd))
        return __real_getsockname(fd, address, length);
    to_address(running->name(fd), address, length);
    return 0;
}

ssize_t __wrap_sendto(int fd, void const* data, size_t size, int flags, sockaddr const* to,
                      socklen_t length) {
    if (!ours(fd))
        return __real_sendto(fd, data, size, flags, to, length);
    return answer<ssize_t>(running->send_to(fd, from_address(to), view(data, size)));
}

ssize_t __wrap_recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* sender, socklen_t* length) {
    if (!ours(fd))
        return __real_recvfrom(fd, buffer, size, flags, sender, length);
    sim::endpoint from;
    long const n = running->receive_from(fd, buffer, size, from);
    if (n >= 0)
        to_address(from, sender, length);
    return answer<ssize_t>(n);
}

ssize_t __wrap_send(int fd, void const* data, size_t size, int flags) {
    return ours(fd) ? answer<ssize_t>(running->send(fd, view(data, size)))
                    : __real_send(fd, data, size, flags);
}

ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
    return ours(fd) ? answer<ssize_t>(running->receive(fd, buffer, size))
                    : __real_recv(fd, buffer, size, flags);
}

int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* limit) {
    if (!running)
        return __real_select(count, read, write, except, limit);
    std::int64_t const ns = limit ? limit->tv_sec * sim::second + limit->tv_usec * sim::us : -1;
    return answer(running->select(count, read, write, ns));
}

int __wrap_poll(pollfd* wanted, nfds_t count, int limit_ms) {
    if (count != 1 || !ours(wanted->fd))
        return __real_poll(wanted, count, limit_ms);
    int const ready = running->wait_readable(wanted->fd, limit_ms < 0 ? -1 : limit_ms * sim::ms);
    wanted->revents = ready ? POLLIN : 0;
    return ready;
}

int __wrap_gettimeofday(timeval* time, void* zone) {
    if (!running)
        return __real_gettimeofday(time, zone);
    *time = to_timeval(running->now + running->day_offset);
    return 0;
}

clock_t __wrap_times(tms* used) {
    return running ? static_cast<clock_t>(running->ticks()) : __real_times(used);
}

ssize_t __wrap_getrandom(void* buffer, size_t size, unsigned flags) {
    if (!running)
        return __real_getrandom(buffer, size, flags);
    auto const number = static_cast<unsigned>(running->chosen.seed);
    std::memset(buffer, 0, size);
    std::memcpy(buffer, &number, std::min(size, sizeof number));
    return static_cast<ssize_t>(size);
}

int __wrap_rand() {
    if (!running)
        return __real_rand();
    // Numerical Recipes' generator, the same with every C library; its high bits are the good ones.
    std::uint32_t const first = running->process_random = running->process_random * 1664525u + 1013904223u;
    std::uint32_t const second = running->process_random = running->process_random * 1664525u + 1013904223u;
    return static_cast<int>((first & 0xFFFF0000u) >> 1 | second >> 17);
}

void __wrap_srand(unsigned seed) {
    if (!running)
        return __real_srand(seed);
    running->process_random = seed;
}

long __wrap_syscall(long number, ...) {
    long arguments[6];  // a system call has no more
    va_list more;
    va_start(more, number);
    for (long& argument : arguments)
        argument = va_arg(more, long);
    va_end(more);
    if (running && number == SYS_sched_setscheduler)
        return answer(running->schedule());
    auto const [a, b, c, d, e, f] = arguments;
    return __real_syscall(number, a, b, c, d, e, f);
}

int __wrap_tcgetattr(int fd, termios* settings) {
    return ours(fd) ? 0 : __real_tcgetattr(fd, settings);
}

int __wrap_tcsetattr(int fd, int when, termios const* settings) {
    return ours(fd) ? 0 : __real_tcsetattr(fd, when, settings);
}

// The names of a 32-bit C library with 64-bit times and file sizes.
#define ALSO(name, plain) [[gnu::alias("__wrap_" #plain)]] decltype(__wrap_##plain) __wrap_##name
ALSO(open64, open);
ALSO(__select64, select);
ALSO(__gettimeofday64, gettimeofday);
ALSO(__ioctl_time64, ioctl);
ALSO(__setsockopt64, setsockopt);

}  // extern "C"
