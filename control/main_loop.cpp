#include "control/main_loop.h"

#include <algorithm>
#include <iterator>
#include <span>

#include <sys/select.h>

#include "control/commands.h"
#include "control/fxs_pipe.h"
#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/datagram.h"
#include "lib/retry_pause.h"
#include "lib/sockets.h"
#include "lib/timeout.h"
#include "lib/wipe.h"
#include "media/channel.h"

namespace {

constexpr int endless = -1;  // of waiting times in ms

int shorter(int a_ms, int b_ms) {
    return a_ms == endless || (b_ms != endless && b_ms < a_ms) ? b_ms : a_ms;
}

bool selectable(int fd) {
    return utils::valid_socket(fd) && fd < FD_SETSIZE;
}

/// The sockets of a channel and what reads them, in the order of service.
struct channel_socket {
    int (channel::*fd)() const;
    void (channel::*process)();
};
constexpr channel_socket channel_sockets[] = {
    {&channel::get_fd_rtp4, &channel::process_rtp4}, {&channel::get_fd_rtcp4, &channel::process_rtcp4},
    {&channel::get_fd_rtp6, &channel::process_rtp6}, {&channel::get_fd_rtcp6, &channel::process_rtcp6},
    {&channel::get_fd_rtpt, &channel::process_rtpt}, {&channel::get_fd_rtcpt, &channel::process_rtcpt},
};

/// The open sockets of all channels, in the order of service: most of a pass's descriptors, which change with calls
/// only. Their set is made when one was opened or closed and copied in each pass.
class open_channel_sockets {
public:
    struct entry {
        int fd;
        int channel;
        channel_socket const* socket;

        /// An earlier handler of the pass may have closed it.
        bool is_current() const { return (channels[channel].*socket->fd)() == fd; }
        void process() const { (channels[channel].*socket->process)(); }
    };

    void renew() {
        if (made_at == utils::socket_changes)
            return;
        made_at = utils::socket_changes;
        FD_ZERO(&set);
        highest = -1;
        count = 0;
        for (int i = 0; channels.valid(i); i++)
            for (channel_socket const& s : channel_sockets)
                if (int const fd = (channels[i].*s.fd)(); selectable(fd))
                    add({fd, i, &s});
    }
    fd_set const& get_set() const { return set; }
    int get_highest() const { return highest; }
    std::span<entry const> all() const { return {entries, static_cast<std::size_t>(count)}; }

private:
    void add(entry const& e) {
        entries[count++] = e;
        FD_SET(e.fd, &set);
        highest = std::max(highest, e.fd);
    }

    fd_set set{};
    int highest = -1;
    int count = 0;
    unsigned made_at = 0;
    entry entries[channel_count * std::size(channel_sockets)];
};
open_channel_sockets channel_set;

/// The descriptors of one pass.
struct descriptor_sets {
    fd_set read;
    fd_set write;
    int highest;
    int pause_ms = endless;  ///< until the first of those that pause may be tried again

    explicit descriptor_sets(open_channel_sockets const& open) : read(open.get_set()), highest(open.get_highest()) {
        FD_ZERO(&write);
    }

    void want_read(int fd) {
        if (!selectable(fd))
            return;
        FD_SET(fd, &read);
        highest = std::max(highest, fd);
    }
    void want_read(int fd, retry_pause const& pause) {
        if (may_try(fd, pause))
            want_read(fd);
    }
    void want_write(int fd, retry_pause const& pause) {
        if (!may_try(fd, pause))
            return;
        FD_SET(fd, &write);
        highest = std::max(highest, fd);
    }
    /// Whether it is open and does not pause; when it does, select() waits no longer than that.
    bool may_try(int fd, retry_pause const& pause) {
        if (!selectable(fd))
            return false;
        int const left_ms = pause.left_ms();
        if (left_ms > 0)
            pause_ms = shorter(pause_ms, left_ms);
        return left_ms == 0;
    }
    bool readable(int fd) const { return selectable(fd) && FD_ISSET(fd, &read); }
    bool writable(int fd) const { return selectable(fd) && FD_ISSET(fd, &write); }
};

void collect(descriptor_sets& sets) {
    for (int i = 0; devmgrs.valid(i); i++) {
        devmgr const& device = devmgrs[i];
        if (!selectable(device.get_fd()))
            continue;
        sets.want_read(device.get_fd(), device.get_read_pause());
        if (device.output_available())
            sets.want_write(device.get_fd(), device.get_write_pause());
    }
    sets.want_read(command_fd);
    sets.want_read(fxs_in_fd, fxs_in_pause);
    sets.want_read(sigchan_fd, sigchan_pause);
}

/// Waits at most delay_ms; what select() returned. With nothing to wait for, nothing is ready.
int wait(descriptor_sets& sets, int delay_ms) {
    if (delay_ms == 0)
        return 0;
    timeval limit{delay_ms / 1000, delay_ms % 1000 * 1000};
    return select(sets.highest + 1, &sets.read, &sets.write, nullptr, delay_ms == endless ? nullptr : &limit);
}

void process_command() {
    ip_port source;
    str data = utils::recv_udp_packet4(command_fd, source);
    data.keep_secret();  // commands carry keys
    wipe(utils::receive_buffer, static_cast<std::size_t>(data.length()));
    on_command(data, source);
}

/// Every descriptor is fetched anew: an earlier handler of the pass may have closed or reopened it. Only commands,
/// which come behind the channels, open sockets of channels.
void service(descriptor_sets const& sets) {
    for (int i = 0; devmgrs.valid(i); i++) {
        if (sets.readable(devmgrs[i].get_fd()))
            devmgrs[i].read_audio();
        if (sets.writable(devmgrs[i].get_fd()))
            devmgrs[i].write_audio();
    }
    for (open_channel_sockets::entry const& e : channel_set.all())
        if (FD_ISSET(e.fd, &sets.read) && e.is_current())
            e.process();
    if (sets.readable(command_fd))
        process_command();
    if (sets.readable(fxs_in_fd))
        process_fxs_input();
    if (sets.readable(sigchan_fd))
        sigchan_process();
}

}  // namespace

void main_loop_pass() {
    channel_set.renew();
    descriptor_sets sets(channel_set);
    collect(sets);
    int const timer_ms = timeout_queue::global_queue.delay(true);
    int const limit_ms = shorter(timer_ms, sets.pause_ms);
    int const ready = wait(sets, limit_ms);
    if (ready > 0)
        service(sets);
    else if (ready == 0 && limit_ms == timer_ms)
        timeout_queue::global_queue.next();
}

void main_loop() {
    for (;;)
        main_loop_pass();
}
