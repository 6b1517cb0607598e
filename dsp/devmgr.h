#pragma once

#include "dsp/digit_listener.h"
#include "lib/extensions.h"
#include "lib/retry_pause.h"
#include "lib/str.h"
#include "lib/svector.h"

/// The manager of one line device: moves 10 ms blocks of 16-bit PCM (8 kHz, host byte order, 160 bytes) between the
/// device and up to two channels.
///
/// With one channel it is a plain pipe; with two it mixes a three-party conference: the line hears both remote
/// parties, each remote party hears the line and the other one. The device's own pace is the clock: the main loop
/// reads when the device is readable and writes when it is writable and a channel has audio. A device manager owns
/// its descriptor and its mixing queues; channels are named by their index in `channels`.
class devmgr {
public:
    devmgr();

    /// Sets the index and with it the device's path: tdm_device followed by the index.
    void init(int device_index);
    /// Forgets both channels and empties the mixing queues.
    void clear();

    /// Takes the channel into the first free one of the two places (a third is ignored) and opens the device.
    void register_channel(int channel);
    /// Frees the channel's place; the device is closed when no channel is left. A remaining channel moves to the
    /// first place, which owns the device's output.
    void deregister_channel(int channel);

    /// Opens the device unless it is open; a failure leaves it closed, the next call tries again.
    void open();
    void close();
    /// -1 when closed.
    int get_fd() const { return fd; }
    /// After a read that gave nothing, and a write that failed.
    retry_pause const& get_read_pause() const { return read_pause; }
    retry_pause const& get_write_pause() const { return write_pause; }

    /// Has the channels decide what can't wait any longer (channel::settle). Returns the ms until it is to be called
    /// again; -1: not before something came.
    int settle();
    /// Whether a channel has audio for the line.
    bool output_available() const;
    /// On a readable device: one block to the channels. Once after rx_clear() it takes the whole backlog (80 ms at
    /// most) and uses its first block only.
    void read_audio();
    /// On a writable device: one block from each channel.
    void write_audio();

    /// Has the driver discard the samples queued for the line.
    void tx_clear();
    /// The next read drops the capture backlog.
    void rx_clear() { drain_rx = true; }

    /// Gives captured PCM, block by block and mixed for each, to the channels. With the extension `detect` call control
    /// is told each key that is heard in it ("key", the line's index and the key in a driver line), and channels that
    /// send telephone events send it as such, and the audio of 20 ms ago without it.
    void recv_device(str const& pcm);
    /// Brings a channel's received block to the line and into the other channel's conference queue.
    void send_device(int channel, str const& pcm);
    /// pcm plus what waits in `queue`, sample by sample and saturated, as far as the shorter of both reaches; the
    /// bytes used are taken off the queue.
    static str mix_audio(str const& pcm, str& queue);

private:
    void capture(str const& block);
    str listen(str const& captured);
    void play(str const& pcm);
    void give(int channel, str const& captured, str const& cleaned, str& queue);

    int index;
    int first_channel;   ///< its received audio is written to the device
    int second_channel;  ///< second conference party
    int fd;
    retry_pause read_pause;
    retry_pause write_pause;
    str path;
    str to_device;     ///< from the second channel, to be mixed into the device's output
    str to_first;      ///< received on the second channel, to be mixed into what the first one sends
    str to_second;     ///< received on the first channel, to be mixed into what the second one sends
    bool drain_rx;     ///< the next read empties the capture backlog
    bool first_write;  ///< the device's transmit buffer has not been cleared yet
    bool detects = extensions.detect;
    digit_listener listener;  ///< of the line, if it detects
};

/// All device managers; the index is the slot on the control protocol.
extern svector<devmgr> devmgrs;
constexpr int devmgr_count = 4;

/// Base path of the line devices; a digit is appended. "/dev/sdt" until an option says otherwise.
extern str tdm_device;
