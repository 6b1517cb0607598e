#pragma once

#include <cstdint>

#include "codecs/codec.h"
#include "media/block_clock.h"
#include "media/decoded_stream.h"
#include "media/jitter_buffer.h"
#include "media/playout_delay.h"

/// The strategy of the extension `playout`: plays a received stream as late as its packets need it and no later.
///
/// It brings together what the stream is (decoded_stream), how long its packets should wait (playout_delay) and when
/// the line takes its blocks (block_clock). What is heard is brought to the delay that is wanted by leaving out or
/// doubling single pitch periods. What is missing when the line needs it is made up; a packet that comes then still
/// plays as far as its time is not over. Whether a block is missing is decided as late as the line allows (settle()),
/// so that packets are played as they come. When that turns out too early or too late, 10 ms more wait for a while, and
/// it is decided a block ahead.
///
/// The line's blocks are the clock: pass_block() tells that one was played. Between two of them at most two blocks are
/// given out. Times are 8 kHz ticks of that clock, which also stamps the packets; none is read here.
class adaptive_playout {
public:
    /// What came with a block.
    struct events {
        bool taken = false;  ///< a packet was taken for it
        int waiting_ms = 0;  ///< decoded and in packets, when taken
    };

    /// What was done to the stream so far, samples.
    struct totals {
        std::int64_t concealed = 0;  ///< made up of speech, until only noise is left
        std::int64_t cut = 0;        ///< left out to lower the delay
        std::int64_t stretched = 0;  ///< put in to make it longer
    };
    totals get_totals() const { return {stream.get_concealed(), cut, stretched}; }

    /// A packet arrived; put() of the jitter buffer. An event's time of sending is not known: it says nothing of
    /// delays.
    jitter_buffer::arrival put(jitter_buffer& received, std::uint32_t sequence, jitter_buffer::packet const& entry);
    /// The line played 10 ms and takes its next block in as much.
    void pass_block(std::uint32_t now) { note_passed(line.pass_block(now)); }
    /// Decides what can't wait any longer. Returns the ticks until it is to be called again; below 0: not before the
    /// next packet or block.
    int settle(jitter_buffer const& received, std::uint32_t now);
    /// Whether settle() has nothing to do.
    bool is_settled(jitter_buffer const& received) const { return line.tells() && !is_waiting(received); }
    /// Whether the line needs a block of the stream now.
    bool due(jitter_buffer const& received) const;
    /// Whether nothing but noise is left of the stream.
    bool only_noise(jitter_buffer const& received) const { return stream.has_faded() && !has_block(received); }
    /// The next 80 samples, made up if there are none.
    str next(jitter_buffer& received, codec& decoder, events& told);
    /// A block of something else is played in the stream's place: what would be heard meanwhile is dropped.
    void skip_block(jitter_buffer& received);

    /// A block of any source went to the line.
    void count_block() { line.count_block(); }
    /// Whether the line has room for a block, as far as this knows.
    bool has_room() const { return line.has_room(); }

private:
    void begin(jitter_buffer::packet const& first);
    bool restarts(jitter_buffer const& received, std::uint32_t sequence);
    void measure(jitter_buffer::packet const& packet);
    bool first_is_playable(jitter_buffer const& received) const;
    bool has_block(jitter_buffer const& received) const;
    bool can_take_more(jitter_buffer const& received) const;

    bool is_waiting(jitter_buffer const& received) const;
    void note_passed(bool had_block);
    void fill(jitter_buffer& received, codec& decoder, events& told);
    void take_more(jitter_buffer& received, codec& decoder, events& told);
    void take(jitter_buffer& received, codec& decoder, events& told);
    void take_speech(jitter_buffer const& received, jitter_buffer::packet const& packet);

    void use_noise();
    void adapt(jitter_buffer& received, codec& decoder, events& told);
    int lower(jitter_buffer& received, codec& decoder, events& told);

    playout_delay delay;
    block_clock line;
    decoded_stream stream;
    bool starved = false;  ///< the line had nothing to play
    int since_change = 0;  ///< ticks since the time scale was changed
    int late_in_row = 0;   ///< packets
    std::int64_t cut = 0;
    std::int64_t stretched = 0;
};
