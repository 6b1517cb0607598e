// The system calls of the process, as --wrap redirects them: to the simulated kernel while there is one, for its
// descriptors and paths; else to the system.

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <asm/socket.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include "sim/kernel.h"

constinit sim::kernel* sim::running = nullptr;

void sim::take_over(kernel* answering) {
    running = answering;
}

namespace {

using sim::running;

bool ours(int fd) {
    return running && sim::kernel::owns(fd);
}

bool ours(char const* path) {
    return running && sim::kernel::owns(path);
}

/// As the C library tells it: the last 4095 values of a word are errors.
template <typename number>
number answer(number result) {
    if (result >= 0 || result < -4095)
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

int device_request(int fd, unsigned long request, void* argument) {
    if (static_cast<unsigned>(request) == static_cast<unsigned>(FIONBIO))
        return 0;
    if (static_cast<unsigned>(request) != static_cast<unsigned>(SIOCGSTAMP_OLD))
        return running->line_request(fd, static_cast<unsigned>(request));
    std::int64_t stamp = 0;
    int const result = running->stamp(fd, stamp);
    timeval const time = to_timeval(stamp);
    long const words[2] = {static_cast<long>(time.tv_sec), static_cast<long>(time.tv_usec)};
    if (result == 0)
        std::memcpy(argument, words, sizeof words);
    return result;
}

int name(int fd, sockaddr* address, socklen_t* length) {
    to_address(running->name(fd), address, length);
    return 0;
}

/// The stamp of what was received, in the words of the machine's kernel.
void put_stamp(int fd, msghdr* message) {
    std::int64_t stamp = 0;
    running->stamp(fd, stamp);
    timeval const time = to_timeval(stamp);
    long const words[2] = {static_cast<long>(time.tv_sec), static_cast<long>(time.tv_usec)};
    cmsghdr* const part = CMSG_FIRSTHDR(message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SO_TIMESTAMP_OLD;
    part->cmsg_len = CMSG_LEN(sizeof words);
    std::memcpy(CMSG_DATA(part), words, sizeof words);
    message->msg_controllen = CMSG_SPACE(sizeof words);
}

long receive_message(int fd, msghdr* message) {
    sim::endpoint from;
    long const n = running->receive_from(fd, message->msg_iov->iov_base, message->msg_iov->iov_len, from);
    if (n < 0)
        return n;
    to_address(from, static_cast<sockaddr*>(message->msg_name), &message->msg_namelen);
    if (message->msg_controllen > 0)
        put_stamp(fd, message);
    return n;
}

int set_option(int fd, int option) {
    std::int64_t unused;
    if (option == SO_TIMESTAMP_OLD)
        running->stamp(fd, unused);
    return 0;
}

long process_call(long number) {
    return number == SYS_times ? static_cast<long>(running->ticks()) : running->schedule();
}

std::int64_t to_ns(timeval const* limit) {
    return limit ? limit->tv_sec * sim::second + limit->tv_usec * sim::us : -1;
}

int wait_for(pollfd* wanted, int limit_ms) {
    int const ready = running->wait_readable(wanted->fd, limit_ms < 0 ? -1 : limit_ms * sim::ms);
    wanted->revents = ready ? POLLIN : 0;
    return ready;
}

int time_of_day(timeval* time) {
    *time = to_timeval(running->time_of_day());
    return 0;
}

ssize_t seed_bytes(void* buffer, size_t size) {
    auto const number = static_cast<unsigned>(running->chosen.seed);
    std::memset(buffer, 0, size);
    std::memcpy(buffer, &number, std::min(size, sizeof number));
    return static_cast<ssize_t>(size);
}

/// Numerical Recipes' generator, the same with every C library; its high bits are the good ones.
int random_number() {
    auto const next = [] { return running->process_random = running->process_random * 1664525u + 1013904223u; };
    std::uint32_t const first = next();
    return static_cast<int>((first & 0xFFFF0000u) >> 1 | next() >> 17);
}

}  // namespace

// Result, name, parameters, arguments; whether this program answers, and with what. Variable arguments (open, ioctl,
// syscall) travel as fixed ones do on every machine that this is built for.
#define CALL(result, name, parameters, arguments, answered_here, simulated)           \
    extern "C" result __real_##name parameters;                                       \
    extern "C" result __wrap_##name parameters {                                      \
        return (answered_here) ? answer<result>(simulated) : __real_##name arguments; \
    }                                                                                 \
    static_assert(true)

CALL(int, open, (char const* path, int flags, mode_t mode), (path, flags, mode), ours(path), running->open(path));
CALL(int, close, (int fd), (fd), ours(fd), running->close(fd));
CALL(ssize_t, read, (int fd, void* to, size_t size), (fd, to, size), ours(fd), running->read(fd, to, size));
CALL(ssize_t, write, (int fd, void const* data, size_t size), (fd, data, size), ours(fd),
     running->write(fd, view(data, size)));
CALL(int, ioctl, (int fd, unsigned long request, void* argument), (fd, request, argument), ours(fd),
     device_request(fd, request, argument));
CALL(int, socket, (int family, int type, int protocol), (family, type, protocol), running,
     running->socket(family, type));
CALL(int, bind, (int fd, sockaddr const* address, socklen_t length), (fd, address, length), ours(fd),
     running->bind(fd, from_address(address)));
CALL(int, connect, (int fd, sockaddr const* address, socklen_t length), (fd, address, length), ours(fd),
     running->connect(fd, from_address(address)));
CALL(int, setsockopt, (int fd, int level, int option, void const* value, socklen_t size),
     (fd, level, option, value, size), ours(fd), set_option(fd, option));
CALL(int, getsockname, (int fd, sockaddr* address, socklen_t* length), (fd, address, length), ours(fd),
     name(fd, address, length));
CALL(ssize_t, sendto, (int fd, void const* data, size_t size, int flags, sockaddr const* to, socklen_t length),
     (fd, data, size, flags, to, length), ours(fd), running->send_to(fd, from_address(to), view(data, size)));
CALL(ssize_t, recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags), ours(fd),
     receive_message(fd, message));
CALL(ssize_t, send, (int fd, void const* data, size_t size, int flags), (fd, data, size, flags), ours(fd),
     running->send(fd, view(data, size)));
CALL(ssize_t, recv, (int fd, void* to, size_t size, int flags), (fd, to, size, flags), ours(fd),
     running->receive(fd, to, size));
CALL(int, select, (int count, fd_set* read, fd_set* write, fd_set* except, timeval* limit),
     (count, read, write, except, limit), running, running->select(count, read, write, to_ns(limit)));
CALL(int, poll, (pollfd * wanted, nfds_t count, int limit_ms), (wanted, count, limit_ms),
     count == 1 && ours(wanted->fd), wait_for(wanted, limit_ms));
CALL(int, gettimeofday, (timeval * time, void* zone), (time, zone), running, time_of_day(time));
CALL(ssize_t, getrandom, (void* to, size_t size, unsigned flags), (to, size, flags), running, seed_bytes(to, size));
CALL(int, rand, (), (), running, random_number());
CALL(long, syscall, (long number, long a, long b, long c, long d, long e, long f), (number, a, b, c, d, e, f),
     running && (number == SYS_sched_setscheduler || number == SYS_times), process_call(number));
CALL(int, tcgetattr, (int fd, termios* settings), (fd, settings), ours(fd), 0);
CALL(int, tcsetattr, (int fd, int when, termios const* settings), (fd, when, settings), ours(fd), 0);

// What has a result that is no error.
extern "C" void __real_srand(unsigned);

extern "C" void __wrap_srand(unsigned seed) {
    if (running)
        running->process_random = seed;
    else
        __real_srand(seed);
}

// The names of a 32-bit C library with 64-bit times and file sizes.
#define ALSO(name, plain) extern "C" [[gnu::alias("__wrap_" #plain)]] decltype(__wrap_##plain) __wrap_##name
ALSO(open64, open);
ALSO(__select64, select);
ALSO(__gettimeofday64, gettimeofday);
ALSO(__ioctl_time64, ioctl);
ALSO(__setsockopt64, setsockopt);
ALSO(__recvmsg64, recvmsg);
