#include "control/main_loop.h"

#include <algorithm>
#include <iterator>
#include <span>

#include <sys/select.h>

#include "control/commands.h"
#include "control/descriptor_set.h"
#include "control/fxs_pipe.h"
#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/datagram.h"
#include "lib/extensions.h"
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
        set = descriptor_set();
        highest = -1;
        count = 0;
        for (int i = 0; channels.valid(i); i++)
            for (channel_socket const& s : channel_sockets)
                if (int const fd = (channels[i].*s.fd)(); descriptor_set::fits(fd))
                    add({fd, i, &s});
    }
    descriptor_set const& get_set() const { return set; }
    int get_highest() const { return highest; }
    std::span<entry const> all() const { return {entries, static_cast<std::size_t>(count)}; }

private:
    void add(entry const& e) {
        entries[count++] = e;
        set.add(e.fd);
        highest = std::max(highest, e.fd);
    }

    descriptor_set set;
    int highest = -1;
    int count = 0;
    unsigned made_at = 0;
    entry entries[channel_count * std::size(channel_sockets)];
};
open_channel_sockets channel_set;

/// The descriptors of one pass, and after select() those that are ready.
class descriptor_sets {
public:
    /// A new pass begins with these.
    void begin(open_channel_sockets const& open) {
        highest_ever = std::max({highest_ever, highest, open.get_highest()});
        read.copy(open.get_set(), highest_ever);
        write.clear(highest_ever);
        highest = open.get_highest();
        pause_ms = endless;
    }
    void want_read(int fd) {
        if (!descriptor_set::fits(fd))
            return;
        read.add(fd);
        highest = std::max(highest, fd);
    }
    void want_read(int fd, retry_pause const& pause) {
        if (may_try(fd, pause))
            want_read(fd);
    }
    void want_write(int fd, retry_pause const& pause) {
        if (!may_try(fd, pause))
            return;
        write.add(fd);
        highest = std::max(highest, fd);
    }
    /// Whether it is open and does not pause; when it does, select() waits no longer than that.
    bool may_try(int fd, retry_pause const& pause) {
        if (!descriptor_set::fits(fd))
            return false;
        int const left_ms = pause.left_ms();
        if (left_ms > 0)
            pause_ms = shorter(pause_ms, left_ms);
        return left_ms == 0;
    }
    /// Another pass is to begin in so many ms at the latest; `endless`: in its time.
    void want_pass_in(int ms) { pause_ms = shorter(pause_ms, ms); }
    /// ms until the first of those that pause may be tried again, or another pass was wanted; `endless`: never.
    int get_pause_ms() const { return pause_ms; }

    /// Waits at most delay_ms; what select() returned. With nothing to wait for, nothing is ready.
    int wait(int delay_ms) {
        ready = 0;
        if (delay_ms == 0)
            return 0;
        timeval limit{delay_ms / 1000, delay_ms % 1000 * 1000};
        ready = select(highest + 1, read.get(), write.get(), nullptr, delay_ms == endless ? nullptr : &limit);
        return ready;
    }
    /// Whether it is ready, which is asked once for each.
    bool readable(int fd) { return descriptor_set::fits(fd) && counted(read.has(fd)); }
    bool writable(int fd) { return descriptor_set::fits(fd) && counted(write.has(fd)); }
    /// Whether everything that is ready has been asked for.
    bool all_served() const { return ready == 0; }

private:
    bool counted(bool is_ready) {
        ready -= is_ready;
        return is_ready;
    }

    descriptor_set read;
    descriptor_set write;
    int highest = -1;
    int highest_ever = -1;  ///< beyond it both are empty
    int pause_ms = endless;
    int ready = 0;  ///< not asked for yet
};
descriptor_sets sets;

void collect() {
    for (int i = 0; devmgrs.valid(i); i++) {
        devmgr& device = devmgrs[i];
        if (!descriptor_set::fits(device.get_fd()))
            continue;
        if (extensions.playout)
            sets.want_pass_in(device.settle());
        sets.want_read(device.get_fd(), device.get_read_pause());
        if (device.output_available())
            sets.want_write(device.get_fd(), device.get_write_pause());
    }
    sets.want_read(command_fd);
    sets.want_read(fxs_in_fd, fxs_in_pause);
    sets.want_read(sigchan_fd, sigchan_pause);
}

void process_command() {
    ip_port source;
    str data = utils::recv_udp_packet4(command_fd, source);
    data.keep_secret();  // commands carry keys
    wipe(utils::receive_buffer, static_cast<std::size_t>(data.length()));
    on_command(data, source);
}

void serve_lines() {
    for (int i = 0; devmgrs.valid(i) && !sets.all_served(); i++) {
        if (sets.readable(devmgrs[i].get_fd()))
            devmgrs[i].read_audio();
        if (sets.writable(devmgrs[i].get_fd()))
            devmgrs[i].write_audio();
    }
}

void serve_channels() {
    for (open_channel_sockets::entry const& e : channel_set.all()) {
        if (sets.all_served())
            return;
        if (sets.readable(e.fd) && e.is_current())
            e.process();
    }
}

/// Every descriptor is fetched anew: an earlier handler of the pass may have closed or reopened it. Only commands,
/// which come behind the channels, open sockets of channels.
void serve() {
    serve_lines();
    serve_channels();
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
    sets.begin(channel_set);
    collect();
    int const timer_ms = timeout_queue::global_queue.delay(true);
    int const limit_ms = shorter(timer_ms, sets.get_pause_ms());
    int const ready = sets.wait(limit_ms);
    if (ready > 0)
        serve();
    else if (ready == 0 && limit_ms == timer_ms)
        timeout_queue::global_queue.next();
}

void main_loop() {
    for (;;)
        main_loop_pass();
}
