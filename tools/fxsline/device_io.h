#pragma once

#define FUSE_USE_VERSION 35
#include <fuse_lowlevel.h>

#include <cstdint>
#include <list>
#include <string_view>
#include <vector>

#include "tools/fxsline/simulated_line.h"

namespace fxsline {

/// FUSE requests to one line's device file: reads, writes and polls are answered at once where the line allows,
/// otherwise when a tick, a transmit clear or an interrupt does. Owns the waiting requests and the pollers' handles,
/// not the line. Not locked: its owner, file_server, is entered by one thread at a time.
class device_io {
public:
    explicit device_io(simulated_line& served) : line(served) {}
    device_io(device_io const&) = delete;
    ~device_io() { abandon(); }

    /// Answers `request` with up to `bytes` bytes of the backlog. While there is nothing: EAGAIN when
    /// `nonblocking`, else the answer waits. Less than a sample is refused with EINVAL.
    void read(fuse_req_t request, size_t bytes, bool nonblocking);

    /// Queues as much of `bytes` as there is room for, whole samples only, once a block or all of it fits.
    void write(fuse_req_t request, std::string_view bytes, bool nonblocking);

    /// Answers with the poll events (POLLIN, POLLOUT, ...) that hold now. With a `notify` handle (nullptr: none;
    /// taken over) the open file `file` is notified once when one of `wanted` holds after a later tick.
    void poll(fuse_req_t request, uint64_t file, uint32_t wanted, fuse_pollhandle* notify);

    /// The open file `file` is gone, and its poller with it.
    void closed(uint64_t file);

    /// After a tick or a transmit clear: answers what need not wait any longer and wakes the pollers concerned.
    void serve_waiting();

    /// Before the unmount: every waiting request fails with ENODEV, every poller wakes.
    void abandon();

    /// A process sleeps until the line has something to read.
    bool reader_sleeps() const;

    /// A write waits for room.
    bool writer_waits() const { return !writes.empty(); }

private:
    struct waiting_read {
        fuse_req_t request;
        size_t bytes;
    };
    struct waiting_write {
        fuse_req_t request;
        std::vector<int16_t> samples;
    };
    struct poller {
        uint64_t file;
        uint32_t wanted;
        fuse_pollhandle* notify;
        bool asleep;  ///< its last poll found nothing that it wanted
    };

    static void interrupted(fuse_req_t request, void* self);
    /// Keeps `item` in `waiting` until it is served. Refused at once when it may not wait or was interrupted already.
    template <class T>
    void wait(std::list<T>& waiting, T item, bool nonblocking);
    void answer_read(fuse_req_t request, size_t bytes);
    void answer_write(fuse_req_t request, std::span<int16_t const> samples);
    void drop_poller(std::vector<poller>::iterator which);
    uint32_t ready() const;

    simulated_line& line;
    std::list<waiting_read> reads;  ///< oldest first, as below
    std::list<waiting_write> writes;
    std::vector<poller> pollers;
};

}  // namespace fxsline
