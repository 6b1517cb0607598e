#include "sim/kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <netinet/in.h>

namespace sim {

namespace {

constexpr char line_path[] = "/dev/sdt", pipe_path[] = "/sim/pipe", signal_path[] = "/sim/signal";

bool starts_with(char const* text, char const* front) {
    return std::strncmp(text, front, std::strlen(front)) == 0;
}

}  // namespace

kernel::kernel(surroundings& outer, settings const& wanted)
    : chosen(wanted),
      process_random(static_cast<std::uint32_t>(wanted.seed)),
      around(outer),
      random(wanted.seed),
      day_offset(wanted.time_of_day_s * second) {}

bool kernel::quiet() const {
    return std::none_of(std::begin(table), std::end(table), [](descriptor const& d) {
        return d.what == kind::stream || d.what == kind::line || (d.what == kind::udp && !d.loopback);
    });
}

bool kernel::owns(char const* path) {
    return starts_with(path, line_path) || starts_with(path, "/sim/");
}

int kernel::take_fd(kind what) {
    for (int i = 0; i < fd_count; i++) {
        if (table[i].what != kind::none)
            continue;
        table[i] = descriptor{};
        table[i].what = what;
        return first_fd + i;
    }
    return -EMFILE;
}

kernel::descriptor* kernel::get(int fd, kind what) {
    if (!owns(fd) || table[fd - first_fd].what == kind::none)
        complain("a closed descriptor was used");
    else if (table[fd - first_fd].what == what)
        return &table[fd - first_fd];
    return nullptr;
}

kernel::descriptor* kernel::of_stream(int stream) {
    for (descriptor& d : table)
        if (d.what == kind::stream && d.number == stream && d.state != descriptor::fresh)
            return &d;
    return nullptr;
}

int kernel::injected(call which) {
    fault& f = faults[static_cast<int>(which)];
    return f.times > 0 && f.times-- > 0 ? f.error : 0;
}

int kernel::open(char const* path) {
    if (int const error = injected(call::open))
        return -error;
    if (starts_with(path, line_path)) {
        int const line = path[sizeof line_path - 1] - '0';
        if (line < 0 || line >= line_count || path[sizeof line_path] != 0)
            return -ENOENT;
        if (!lines_open())
            next_tick = (time / (10 * ms) + 1) * (10 * ms);
        int const fd = take_fd(kind::line);
        if (owns(fd)) {
            table[fd - first_fd].number = line;
            lines[line].opened++;
        }
        return fd;
    }
    if (starts_with(path, pipe_path))
        return take_fd(path[sizeof pipe_path - 1] == '0' ? kind::pipe_in : kind::pipe_out);
    return starts_with(path, signal_path) ? take_fd(kind::signal) : -ENOENT;
}

int kernel::socket(int family, int type) {
    if (int const error = injected(call::socket))
        return -error;
    int const fd = take_fd(type == SOCK_DGRAM ? kind::udp : kind::stream);
    if (owns(fd))
        table[fd - first_fd].local = family == AF_INET6 ? device_v6 : device_v4;
    return fd;
}

int kernel::close(int fd) {
    descriptor& d = table[fd - first_fd];
    if (d.what == kind::none) {
        complain("a closed descriptor was closed");
        return -EBADF;
    }
    if (d.what == kind::line && --lines[d.number].opened == 0)
        lines[d.number].captured.clear(), lines[d.number].playing.clear();
    bool const told = d.what == kind::stream && d.state != descriptor::fresh;
    int const stream = d.number;
    d = descriptor{};
    if (told)
        around.stream_closed(stream);
    return 0;
}

int kernel::bind(int fd, endpoint const& local) {
    if (int const error = injected(call::bind))
        return -error;
    descriptor* const d = get(fd, kind::udp);
    if (!d)
        return -EINVAL;
    int port = local.port;
    auto const taken = [&] {
        return std::any_of(std::begin(table), std::end(table), [&](descriptor const& other) {
            return other.what == kind::udp && other.local.size == d->local.size && other.local.port == port;
        });
    };
    if (port == 0)
        for (port = ephemeral_port++; taken(); port = ephemeral_port++) {
        }
    else if (taken())
        return -EADDRINUSE;
    d->local.port = static_cast<std::uint16_t>(port);
    d->loopback = local.size == 4 && local.address[0] == 127;
    return 0;
}

int kernel::stamp(int fd, std::int64_t& time_of_day_ns) {
    descriptor* const d = get(fd, kind::udp);
    if (!d)
        return -ENOTTY;
    time_of_day_ns = d->stamping ? d->stamp : time_of_day();
    d->stamping = true;
    return 0;
}

endpoint kernel::name(int fd) {
    descriptor const* const d = get(fd, kind::udp);
    return d ? d->local : endpoint{};
}

}  // namespace sim
