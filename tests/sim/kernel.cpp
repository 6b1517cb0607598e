#include "tests/sim/kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <netinet/in.h>

namespace sim {

namespace {

constexpr char line_path[] = "/dev/sdt", pipe_path[] = "/sim/pipe", signal_path[] = "/sim/signal";
constexpr std::size_t block_bytes = 2 * block_samples;
constexpr std::size_t capture_bytes = 8 * block_bytes;  // a driver keeps 80 ms each way
constexpr std::size_t play_bytes = 3 * block_bytes;
constexpr std::size_t socket_bytes = 212992;  // Linux's default receive buffer
constexpr std::size_t stream_bytes = 65536;
constexpr std::size_t largest_datagram = 65507;
constexpr unsigned request_clear = 0x20003005;
constexpr std::int64_t stream_delay = 2 * ms;

bool starts_with(char const* text, char const* front) {
    return std::strncmp(text, front, std::strlen(front)) == 0;
}

bool is_loopback(endpoint const& e) {
    return e.size == 4 && e.address[0] == 127;
}

bool is_device(endpoint const& e) {
    return e.address == device_v4.address || e.address == device_v6.address || is_loopback(e);
}

std::size_t take(bytes& from, void* to, std::size_t size) {
    std::size_t const n = std::min(size, from.size());
    std::memcpy(to, from.data(), n);
    from.erase(0, n);
    return n;
}

}  // namespace

kernel::kernel(surroundings& surroundings_, settings const& settings_)
    : around(surroundings_),
      chosen(settings_),
      random(settings_.seed),
      process_random(static_cast<std::uint32_t>(settings_.seed)),
      day_offset(settings_.time_of_day_s * second) {}

bool kernel::quiet() const {
    return std::none_of(std::begin(table), std::end(table), [](descriptor const& d) {
        return d.what == kind::stream || d.what == kind::line || (d.what == kind::udp && !d.loopback);
    });
}

bool kernel::owns(char const* path) {
    return starts_with(path, line_path) || starts_with(path, "/sim/");
}

// ---- descriptors

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
            next_tick = (now / (10 * ms) + 1) * (10 * ms);
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

int kernel::bind(int fd, endpoint const& local, bool loopback) {
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
    d->loopback = loopback;
    return 0;
}

int kernel::stamp(int fd, std::int64_t& time_of_day_ns) {
    descriptor* const d = get(fd, kind::udp);
    if (!d)
        return -ENOTTY;
    time_of_day_ns = d->stamping ? d->stamp : now + day_offset;
    d->stamping = true;
    return 0;
}

endpoint kernel::name(int fd) {
    descriptor const* const d = get(fd, kind::udp);
    return d ? d->local : endpoint{};
}

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
            deliver(from, to, data,
                    (p.delay_us + (p.jitter_us > 0 ? random.below(p.jitter_us + 1) : 0)) * us);
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
        d.datagrams.push_back({e.from, std::move(e.data), now + day_offset});
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
    d->stamp = d->stamping ? first.arrived : now + day_offset;
    from = first.from;
    std::size_t const n = std::min(size, first.data.size());
    std::memcpy(buffer, first.data.data(), n);
    if (d->loopback)
        mirror_command(std::string_view(first.data).substr(0, n));
    return static_cast<long>(n);
}

void kernel::mirror_command(std::string_view data) {
    while (!data.empty()) {
        if (command_rest > 0) {
            std::size_t const n = std::min(command_rest, data.size());
            command_rest -= n;
            data.remove_prefix(n);
            continue;
        }
        command_header += data.front();
        data.remove_prefix(1);
        if (command_header.size() == 4) {
            command_rest = static_cast<std::size_t>(static_cast<unsigned char>(command_header[2])) << 8 |
                           static_cast<unsigned char>(command_header[3]);
            command_header.clear();
        }
    }
}

std::size_t kernel::command_bytes_missing() const {
    if (command_rest > 0)
        return command_rest;
    return command_header.empty() ? 0 : 4 - command_header.size();
}

// ---- streams

int kernel::connect(int fd, endpoint const& to) {
    if (int const error = injected(call::connect))
        return -error;
    if (descriptor* const d = &table[fd - first_fd]; d->what == kind::udp) {
        d->peer = to;
        return 0;
    }
    descriptor* const d = get(fd, kind::stream);
    if (!d)
        return -EBADF;
    d->number = ++streams;
    d->peer = to;
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

// ---- lines, pipe, signalling device

long kernel::read(int fd, void* buffer, std::size_t size) {
    if (int const error = injected(call::read))
        return -error;
    descriptor& d = table[fd - first_fd];
    if (!readable(d)) {
        complain(d.what == kind::none ? "a closed descriptor was read" : "a read would block for ever");
        return -EAGAIN;
    }
    if (d.what == kind::line) {
        std::memset(buffer, 0, size);  // what the block does not fill would else be an earlier run's
        if (lines[d.number].hung_up)
            now += ms / 10;
        return lines[d.number].hung_up ? 0 : static_cast<long>(take(lines[d.number].captured, buffer, size));
    }
    return static_cast<long>(take(d.inbox, buffer, size));
}

long kernel::write(int fd, std::string_view data) {
    if (int const error = injected(call::write))
        return -error;
    descriptor& d = table[fd - first_fd];
    if (d.what == kind::signal)
        around.signal(data);
    else if (d.what == kind::line)
        lines[d.number].playing.append(
            data.substr(0, play_bytes - std::min(play_bytes, lines[d.number].playing.size())));
    else
        complain("written to what takes nothing");
    return static_cast<long>(data.size());
}

int kernel::line_request(int fd, unsigned number) {
    if (int const error = injected(call::ioctl))
        return -error;
    descriptor* const d = get(fd, kind::line);
    if (!d)
        return -ENOTTY;
    if (number == request_clear)
        lines[d->number].playing.clear();
    return around.request(d->number, number);
}

void kernel::say(int line, std::int16_t const* samples, int count) {
    bytes& captured = lines[line].captured;
    captured.append(reinterpret_cast<char const*>(samples), 2 * static_cast<std::size_t>(count));
    if (captured.size() > capture_bytes)
        captured.erase(0, captured.size() - capture_bytes);
}

void kernel::feed(bool pipe, std::string_view data) {
    for (descriptor& d : table)
        if (d.what == (pipe ? kind::pipe_in : kind::signal))
            d.inbox += data;
}

bool kernel::lines_open() const {
    return std::any_of(std::begin(lines), std::end(lines), [](line_state const& l) { return l.opened > 0; });
}

void kernel::tick_lines() {
    next_tick += 10 * ms + 10 * ms / 1000000 * chosen.line_ppm;
    for (int i = 0; i < line_count; i++) {
        line_state& l = lines[i];
        if (l.opened == 0 || l.hung_up)
            continue;
        std::int16_t said[block_samples] = {}, heard[block_samples] = {};
        bool const played = take(l.playing, heard, block_bytes) > 0;
        around.line(i, played ? heard : nullptr, said);
        if (l.opened > 0)
            say(i, said, block_samples);
    }
}

// ---- time

void kernel::at(std::int64_t time, int token) {
    schedule_event(time - now, {event::token, token, {}, {}, {}});
}

void kernel::schedule_event(std::int64_t delay, event&& e) {
    events.emplace(moment(now + std::max<std::int64_t>(delay, 0), scheduled++), std::move(e));
}

void kernel::happen(event& e) {
    descriptor* const d = e.what == event::token || e.what == event::arrival
                              ? nullptr
                              : of_stream(e.number < 0 ? -e.number : e.number);
    switch (e.what) {
        case event::token: around.wake(e.number); break;
        case event::arrival: arrive(e); break;
        case event::stream_open:
            if (d) {
                d->state = e.number > 0 ? descriptor::connected : descriptor::refused;
                d->room = stream_bytes;
            }
            break;
        case event::stream_in:
            if (d && d->state == descriptor::connected && !d->peer_closed)
                d->inbox += e.data;
            break;
        case event::stream_end:
            if (d)
                d->peer_closed = true;
            break;
        case event::stream_room:
            if (d && !d->stalled)
                d->room = std::min(stream_bytes, d->room + e.data.size());
            break;
    }
}

/// Lets what is due happen; else time passes to the next event, at most to `until`. False: it is `until`.
bool kernel::advance(std::int64_t until) {
    std::int64_t const first = events.empty() ? INT64_MAX : events.begin()->first.first;
    std::int64_t const tick = lines_open() ? next_tick : INT64_MAX;
    std::int64_t const next = std::min(first, tick);
    if (next > now) {
        if (now >= until)
            return false;
        now = std::min(next, until);
        return true;
    }
    if (tick <= first) {
        tick_lines();
    } else {
        event e = std::move(events.begin()->second);
        events.erase(events.begin());
        happen(e);
    }
    return true;
}

bool kernel::readable(descriptor const& d) const {
    switch (d.what) {
        case kind::udp: return !d.datagrams.empty();
        case kind::stream: return d.state == descriptor::refused || d.peer_closed || !d.inbox.empty();
        case kind::line: return lines[d.number].hung_up || lines[d.number].captured.size() >= block_bytes;
        case kind::pipe_in:
        case kind::signal: return !d.inbox.empty();
        default: return false;
    }
}

bool kernel::writable(descriptor const& d) const {
    return d.what != kind::line || lines[d.number].playing.size() + block_bytes <= play_bytes;
}

int kernel::select(int highest, fd_set* read, fd_set* write, std::int64_t limit) {
    fd_set const wanted_read = *read, wanted_write = *write;
    std::int64_t const deadline = limit < 0 ? INT64_MAX : now + limit;
    for (;;) {
        while (!events.empty() && events.begin()->first.first <= now)
            advance(now);
        while (lines_open() && next_tick <= now)
            advance(now);
        FD_ZERO(read);
        FD_ZERO(write);
        int ready = 0;
        for (int fd = first_fd; fd < highest; fd++) {
            descriptor const& d = table[fd - first_fd];
            bool const to_read = FD_ISSET(fd, &wanted_read), to_write = FD_ISSET(fd, &wanted_write);
            if ((to_read || to_write) && d.what == kind::none)
                complain("a closed descriptor was waited for");
            if (to_read && readable(d))
                FD_SET(fd, read), ready++;
            if (to_write && writable(d))
                FD_SET(fd, write), ready++;
        }
        if (ready > 0 || now >= deadline)
            return ready;
        if (now >= run_until)
            return -EINTR;
        advance(std::min(deadline, run_until));
    }
}

int kernel::wait_readable(int fd, std::int64_t limit) {
    std::int64_t const deadline = limit < 0 ? INT64_MAX : now + limit;
    while (!readable(table[fd - first_fd]))
        if (now >= deadline || (!lines_open() && events.empty()))
            return 0;
        else
            advance(deadline);
    return 1;
}

}  // namespace sim
