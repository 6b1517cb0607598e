#include "sim/kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <netinet/in.h>

#include "lib/wire.h"

namespace sim {

namespace {

constexpr std::size_t socket_bytes = 212992;  // Linux's default receive buffer
constexpr std::size_t largest_datagram = 65507;
constexpr std::int64_t stream_delay = 2 * ms;

bool is_loopback(endpoint const& e) {
    return e.size == 4 && e.address[0] == 127;
}

bool is_device(endpoint const& e) {
    return e.address == device_v4.address || e.address == device_v6.address || is_loopback(e);
}

}  // namespace

// ---- datagrams

long kernel::send_to(int fd, endpoint const& to, std::string_view data) {
    if (int const error = injected(call::send))
        return -error;
    descriptor* const d = get(fd, kind::udp);
    if (!d)
        return -EBADF;
    if (to.size != d->local.size)
        return -EAFNOSUPPORT;
    if (data.size() > largest_datagram)
        return -EMSGSIZE;
    if (to.port == 0)
        return -EINVAL;
    if (d->loopback) {
        around.report(data);
        return static_cast<long>(data.size());
    }
    endpoint const from = is_loopback(to) ? call_control.with_port(d->local.port) : d->local;
    around.sent(from, to, data);
    transmit(from, to, data);
    return static_cast<long>(data.size());
}

void kernel::transmit(endpoint const& from, endpoint const& to, std::string_view data) {
    path const p = around.route(from, to);
    for (int copies = random.chance(p.duplicate_permille) ? 2 : 1; copies > 0; copies--)
        if (!random.chance(p.loss_permille))
            deliver(from, to, data, (p.delay_us + (p.jitter_us > 0 ? random.below(p.jitter_us + 1) : 0)) * us);
}

void kernel::deliver(endpoint const& from, endpoint const& to, std::string_view data, std::int64_t delay) {
    event e{event::arrival, 0, from, to, bytes(data)};
    if (delay <= 0)
        arrive(e);
    else
        schedule_event(delay, std::move(e));
}

void kernel::arrive(event& e) {
    if (!is_device(e.to)) {
        around.arrived(e.from, e.to, e.data);
        return;
    }
    for (descriptor& d : table) {
        if (d.what != kind::udp || d.local.size != e.to.size || d.local.port != e.to.port ||
            (d.loopback && !is_loopback(e.to)))
            continue;
        if (d.queued + e.data.size() > socket_bytes)
            return;
        d.queued += e.data.size();
        d.datagrams.push_back({e.from, std::move(e.data), time_of_day()});
        return;
    }
}

long kernel::receive_from(int fd, void* buffer, std::size_t size, endpoint& from) {
    if (int const error = injected(call::receive))
        return -error;
    descriptor* const d = get(fd, kind::udp);
    if (!d)
        return -EBADF;
    if (d->datagrams.empty())
        return -EAGAIN;
    datagram const first = std::move(d->datagrams.front());
    d->datagrams.pop_front();
    d->queued -= first.data.size();
    d->stamp = d->stamping ? first.arrived : time_of_day();
    from = first.from;
    std::size_t const n = std::min(size, first.data.size());
    std::memcpy(buffer, first.data.data(), n);
    if (d->loopback)
        mirror_command(std::string_view(first.data).substr(0, n));
    return static_cast<long>(n);
}

std::size_t kernel::command_bytes_missing() const {
    std::size_t const whole =
        command.size() < 4 ? 4 : 4 + wire::get16(reinterpret_cast<unsigned char const*>(command.data()) + 2);
    return command.empty() ? 0 : whole - command.size();
}

void kernel::mirror_command(std::string_view data) {
    for (char const c : data) {
        command += c;
        if (command.size() >= 4 && command_bytes_missing() == 0)
            command.clear();
    }
}

// ---- streams

int kernel::connect(int fd, endpoint const& to) {
    if (int const error = injected(call::connect))
        return -error;
    if (table[fd - first_fd].what == kind::udp)
        return 0;
    descriptor* const d = get(fd, kind::stream);
    if (!d)
        return -EBADF;
    d->number = ++streams;
    d->state = descriptor::connecting;
    bool const accepted = around.connecting(d->number, to);
    schedule_event(stream_delay, {event::stream_open, accepted ? d->number : -d->number, {}, {}, {}});
    return -EINPROGRESS;
}

long kernel::send(int fd, std::string_view data) {
    if (int const error = injected(call::send))
        return -error;
    descriptor* const d = get(fd, kind::stream);
    if (!d)
        return -EBADF;
    if (d->state == descriptor::refused || d->peer_closed)
        return -EPIPE;
    std::size_t const n = std::min(data.size(), d->state == descriptor::connected ? d->room : 0);
    if (n == 0)
        return -EAGAIN;
    d->room -= n;
    int const stream = d->number;
    schedule_event(stream_delay, {event::stream_room, stream, {}, {}, bytes(n, 0)});
    around.stream_data(stream, data.substr(0, n));
    return static_cast<long>(n);
}

long kernel::receive(int fd, void* buffer, std::size_t size) {
    if (int const error = injected(call::receive))
        return -error;
    descriptor* const d = get(fd, kind::stream);
    if (!d)
        return -EBADF;
    if (d->state == descriptor::refused)
        return -ECONNREFUSED;
    if (d->inbox.empty())
        return d->peer_closed ? 0 : -EAGAIN;
    return static_cast<long>(take(d->inbox, buffer, size));
}

void kernel::stream_send(int stream, std::string_view data, std::int64_t delay) {
    schedule_event(delay, {event::stream_in, stream, {}, {}, bytes(data)});
}

void kernel::stream_close(int stream) {
    schedule_event(0, {event::stream_end, stream, {}, {}, {}});
}

void kernel::stream_stall(int stream, bool stalled) {
    descriptor* const d = of_stream(stream);
    if (!d)
        return;
    d->stalled = stalled;
    if (!stalled)
        d->room = stream_bytes;
}

}  // namespace sim
