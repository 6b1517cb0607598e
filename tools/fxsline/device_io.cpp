#include "tools/fxsline/device_io.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace fxsline {

namespace {

constexpr size_t sample_bytes = sizeof(int16_t);

}  // namespace

void device_io::read(fuse_req_t request, size_t bytes, bool nonblocking) {
    if (bytes < sample_bytes)
        fuse_reply_err(request, EINVAL);
    else if (line.readable() && reads.empty())
        answer_read(request, bytes);
    else
        wait(reads, {request, bytes}, nonblocking);
}

void device_io::write(fuse_req_t request, std::string_view bytes, bool nonblocking) {
    // What exceeds the queue would never be written, so it need not be kept.
    size_t const count = std::min(bytes.size() / sample_bytes, line.play_capacity());
    if (count == 0) {
        fuse_reply_err(request, EINVAL);
        return;
    }
    std::vector<int16_t> samples(count);
    std::memcpy(samples.data(), bytes.data(), count * sample_bytes);
    if (line.fits(count) && writes.empty())
        answer_write(request, samples);
    else
        wait(writes, {request, std::move(samples)}, nonblocking);
}

void device_io::poll(fuse_req_t request, uint64_t file, uint32_t wanted, fuse_pollhandle* notify) {
    uint32_t const now = ready();
    if (notify != nullptr) {
        closed(file);
        pollers.push_back({file, wanted, notify, (now & wanted) == 0});
    }
    fuse_reply_poll(request, now);
}

void device_io::closed(uint64_t file) {
    auto const found = std::ranges::find(pollers, file, &poller::file);
    if (found != pollers.end())
        drop_poller(found);
}

void device_io::serve_waiting() {
    while (!reads.empty() && line.readable()) {
        waiting_read const first = reads.front();
        reads.pop_front();
        answer_read(first.request, first.bytes);
    }
    while (!writes.empty() && line.fits(writes.front().samples.size())) {
        waiting_write const first = std::move(writes.front());
        writes.pop_front();
        answer_write(first.request, first.samples);
    }
    for (size_t i = pollers.size(); i-- > 0;) {
        if ((pollers[i].wanted & ready()) != 0) {
            fuse_lowlevel_notify_poll(pollers[i].notify);
            drop_poller(pollers.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

void device_io::abandon() {
    for (waiting_read const& read : std::exchange(reads, {}))
        fuse_reply_err(read.request, ENODEV);
    for (waiting_write const& write : std::exchange(writes, {}))
        fuse_reply_err(write.request, ENODEV);
    while (!pollers.empty()) {
        fuse_lowlevel_notify_poll(pollers.back().notify);
        drop_poller(pollers.end() - 1);
    }
}

bool device_io::reader_sleeps() const {
    return !reads.empty() ||
           std::ranges::any_of(pollers, [](poller const& one) { return one.asleep && (one.wanted & POLLIN) != 0; });
}

void device_io::interrupted(fuse_req_t request, void* self) {
    auto& io = *static_cast<device_io*>(self);
    auto const is_it = [request](auto const& waiting) { return waiting.request == request; };
    if (std::erase_if(io.reads, is_it) + std::erase_if(io.writes, is_it) > 0)
        fuse_reply_err(request, EINTR);
}

template <class T>
void device_io::wait(std::list<T>& waiting, T item, bool nonblocking) {
    fuse_req_t const request = item.request;
    if (nonblocking || fuse_req_interrupted(request)) {
        fuse_reply_err(request, nonblocking ? EAGAIN : EINTR);
        return;
    }
    waiting.push_back(std::move(item));
    fuse_req_interrupt_func(request, interrupted, this);
}

void device_io::answer_read(fuse_req_t request, size_t bytes) {
    std::vector<int16_t> samples(std::min(bytes / sample_bytes, line.samples_to_read()));
    size_t const count = line.read(samples);
    fuse_reply_buf(request, reinterpret_cast<char const*>(samples.data()), count * sample_bytes);
}

void device_io::answer_write(fuse_req_t request, std::span<int16_t const> samples) {
    fuse_reply_write(request, line.write(samples) * sample_bytes);
}

void device_io::drop_poller(std::vector<poller>::iterator which) {
    fuse_pollhandle_destroy(which->notify);
    pollers.erase(which);
}

uint32_t device_io::ready() const {
    uint32_t events = 0;
    if (line.readable() && reads.empty())
        events |= POLLIN | POLLRDNORM;
    if (line.writable() && writes.empty())
        events |= POLLOUT | POLLWRNORM;
    return events;
}

}  // namespace fxsline
