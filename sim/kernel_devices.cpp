#include "sim/kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace sim {

namespace {

constexpr std::size_t capture_bytes = 8 * 2 * block_samples;  // a driver keeps 80 ms each way
constexpr unsigned request_clear = 0x20003005;
constexpr int loopback_reads = 32;  // of a loopback test, which waits for nothing else

}  // namespace

long kernel::read(int fd, void* buffer, std::size_t size) {
    if (int const error = injected(call::read))
        return -error;
    descriptor& d = table[fd - first_fd];
    if (!readable(d)) {
        complain(d.what == kind::none ? "a closed descriptor was read" : "a read would block for ever");
        return -EAGAIN;
    }
    if (d.what == kind::line && !lines[d.number].hung_up) {
        std::memset(buffer, 0, size);  // what the block does not fill would else be an earlier run's
        return static_cast<long>(take(lines[d.number].captured, buffer, size));
    }
    if (d.what == kind::line || (d.what == kind::signal && signal_hung_up)) {
        d.idle_reads = d.idle_tick == ticks() ? d.idle_reads + 1 : 0;
        d.idle_tick = ticks();
        if (d.idle_reads > loopback_reads)
            complain("a device that gave nothing was asked again and again");
        return 0;
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

void kernel::feed(kind device, std::string_view data) {
    for (descriptor& d : table)
        if (d.what == device)
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

}  // namespace sim
