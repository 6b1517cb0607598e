#include "dsp/devmgr.h"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "dsp/mixing.h"
#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/pcm.h"
#include "lib/protocol.h"
#include "lib/sockets.h"
#include "lib/tlv.h"
#include "media/channel.h"
#include "media/line.h"

svector<devmgr> devmgrs;
str tdm_device("/dev/sdt");

namespace {

constexpr int no_channel = -1;
constexpr int drain_bytes = 8 * pcm::block_bytes;             // 80 ms
constexpr unsigned long request_clear_transmit = 0x20003005;  // _IO('0', 5) in the Linux MIPS encoding

/// The newest block that was read, from whichever line. Whoever keeps it shares it: then the next one is read
/// elsewhere.
str captured('\0', pcm::block_bytes);

/// Reads one block into `captured`, or what has queued up and keeps its first block. What read() returned.
int read_block(int fd, bool drain) {
    if (!drain)
        return static_cast<int>(read(fd, captured.buffer(), pcm::block_bytes));
    unsigned char backlog[drain_bytes];
    int const n = static_cast<int>(read(fd, backlog, sizeof backlog));
    if (n >= 1)
        std::memcpy(captured.buffer(), backlog, static_cast<std::size_t>(std::min(n, pcm::block_bytes)));
    return n;
}

/// Appends to a mixing queue. One that holds more than two blocks has fallen behind and is emptied first, which
/// drops its backlog at once rather than sample by sample.
void enqueue(str& queue, str const& pcm) {
    if (queue.length() > 2 * pcm.length())
        queue.clear();
    if (queue.empty())
        queue = pcm;
    else
        queue += pcm;
}

}  // namespace

devmgr::devmgr()
    : index(-1), first_channel(no_channel), second_channel(no_channel), fd(-1), drain_rx(false), first_write(true) {}

void devmgr::init(int device_index) {
    index = device_index;
    path = tdm_device + str(index, 0);
    clear();
}

void devmgr::clear() {
    first_channel = second_channel = no_channel;
    to_device.clear();
    to_first.clear();
    to_second.clear();
    listener.clear();
}

void devmgr::register_channel(int channel) {
    if (!channels.valid(first_channel))
        first_channel = channel;
    else if (!channels.valid(second_channel))
        second_channel = channel;
    open();
}

void devmgr::deregister_channel(int channel) {
    if (first_channel == channel)
        first_channel = no_channel;
    else if (second_channel == channel)
        second_channel = no_channel;
    if (!channels.valid(first_channel) && !channels.valid(second_channel)) {
        close();
        clear();
    }
    if (first_channel == no_channel) {
        first_channel = second_channel;
        second_channel = no_channel;
    }
}

void devmgr::open() {
    if (utils::valid_socket(fd))
        return;
    fd = ::open(path.c_str(), O_RDWR);
    read_pause.clear();
    write_pause.clear();
    log_line(6, "Open %s", arg_str(path));
}

void devmgr::close() {
    if (!utils::valid_socket(fd))
        return;
    ::close(fd);
    fd = -1;
    log_line(6, "Close %s", arg_str(path));
}

int devmgr::settle() {
    int first_ms = -1;
    for (int const i : {first_channel, second_channel})
        if (int const ms = channels.valid(i) ? channels[i].settle() : -1; ms >= 0)
            first_ms = first_ms < 0 ? ms : std::min(first_ms, ms);
    return first_ms;
}

bool devmgr::output_available() const {
    return (channels.valid(first_channel) && channels[first_channel].output_available()) ||
           (channels.valid(second_channel) && channels[second_channel].output_available());
}

void devmgr::read_audio() {
    if (!utils::valid_socket(fd))
        return;
    int const n = read_block(fd, drain_rx);
    drain_rx = false;
    read_pause.note(n >= 1);
    if (n >= 1)
        capture(captured);
    else
        log_line(7, "TDM read returned %d", arg_int(n));
}

void devmgr::write_audio() {
    for (int const i : {first_channel, second_channel}) {
        if (!channels.valid(i))
            continue;
        bool talk_spurt = false;
        str const samples = channels[i].get_samples(talk_spurt);
        if (talk_spurt)
            tx_clear();
        send_device(i, samples);
    }
}

void devmgr::tx_clear() {
    if (!utils::valid_socket(fd))
        return;
    ioctl(fd, request_clear_transmit, 0);
    log_line(7, "Clear Tx");
}

void devmgr::recv_device(str const& pcm) {
    for (int at = 0; at < pcm.length(); at += pcm::block_bytes)
        capture(pcm.substr(at, pcm::block_bytes));
}

void devmgr::capture(str const& block) {
    if (detects) {
        str const cleaned = listen(block);
        give(first_channel, block, cleaned, to_first);
        give(second_channel, block, cleaned, to_second);
    } else {
        give(first_channel, block, block, to_first);
        give(second_channel, block, block, to_second);
    }
}

/// The captured block as channels get it that send events for keys.
str devmgr::listen(str const& captured) {
    digit_listener::result const heard = listener.hear(captured);
    if (heard.key) {
        str line = str::sprintf("key %d ", arg_int(index));
        line += heard.key;
        send_command(cmd_get_tlv_str(protocol::report_driver_line::tag, line));
        for (int const i : {first_channel, second_channel})
            if (channels.valid(i) && channels[i].sends_events())
                channels[i].send_dtmf(digit_listener::event_of(heard.key));
    }
    return heard.cleaned;
}

void devmgr::give(int channel, str const& captured, str const& cleaned, str& queue) {
    if (!channels.valid(channel))
        return;
    str const& block = channels[channel].sends_events() ? cleaned : captured;
    if (queue.empty())
        channels[channel].process_audio(block);
    else
        channels[channel].process_audio(mix_audio(block, queue));
}

void devmgr::send_device(int channel, str const& pcm) {
    if (channel == first_channel) {
        if (to_device.empty())
            play(pcm);
        else
            play(mix_audio(pcm, to_device));
        if (second_channel >= 0)
            enqueue(to_second, pcm);
    } else if (channel == second_channel) {
        enqueue(to_device, pcm);
        if (first_channel >= 0)
            enqueue(to_first, pcm);
    }
}

/// Writes PCM to the device.
void devmgr::play(str const& pcm) {
    if (pcm.empty() || !utils::valid_socket(fd))
        return;
    if (first_write) {
        first_write = false;
        tx_clear();
    }
    write_pause.note(write(fd, pcm.cbuffer(), static_cast<size_t>(pcm.length())) > 0);
}

str devmgr::mix_audio(str const& pcm, str& queue) {
    if (queue.empty())
        return pcm;
    int const n = std::min(pcm.length(), queue.length());
    str mixed(nullptr, pcm.length());
    unsigned char* const out = mixed.buffer();
    mix_samples(pcm.cbuffer(), queue.cbuffer(), n / pcm::sample_bytes, out);
    int const rest = n / pcm::sample_bytes * pcm::sample_bytes;
    std::memcpy(out + rest, pcm.cbuffer() + rest, static_cast<std::size_t>(pcm.length() - rest));
    queue.drop_front(n);
    return mixed;
}

bool line::valid(int device) {
    return devmgrs.valid(device);
}

void line::attach(int device, int channel) {
    devmgrs[device].register_channel(channel);
}

void line::detach(int device, int channel) {
    devmgrs[device].deregister_channel(channel);
}

void line::tx_clear(int device) {
    devmgrs[device].tx_clear();
}

void line::rx_clear(int device) {
    devmgrs[device].rx_clear();
}
