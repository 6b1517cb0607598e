#pragma once

#include <cstdint>

#include "codecs/codec.h"
#include "media/arrival_delays.h"
#include "media/concealment.h"
#include "media/jitter_buffer.h"
#include "media/speech_queue.h"

/// The strategy of the extension `playout`: plays a received stream as late as its packets need it and no later.
///
/// The delay that is wanted follows the distribution of the packets' delays (arrival_delays). What is heard is brought
/// there by leaving out or doubling single pitch periods (speech_queue). What is missing when the line needs it is made
/// up, by the coder's own rule where it has one, else from the waveform (concealment); a packet that comes then still
/// plays as far as its time is not over. Whether a block is missing is decided as late as the line allows
/// (settle()), so that packets are played as they come. When that turns out too early or too late, 10 ms more
/// wait for a while, and it is decided a block ahead.
///
/// The line's blocks are the clock: pass_block() tells that one was played. Between two of them at most two blocks are
/// given out. A line that captures nothing is given blocks by the time of day. Times are 8 kHz ticks of that clock,
/// which also stamps the packets; none is read here. In steady state only the strings that
/// codec::decode() returns are taken, from the pool.
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
        int late = 0;                ///< packets whose turn was over when they came
    };
    adaptive_playout();

    totals const& get_totals() const { return counted; }

    /// A packet arrived; put() of the jitter buffer. An event's time of sending is not known: it says nothing of
    /// delays.
    jitter_buffer::arrival put(jitter_buffer& received, std::uint32_t sequence, jitter_buffer::packet const& entry);
    /// The line played 10 ms and takes its next block in as much.
    void pass_block(std::uint32_t now);
    /// Decides what can't wait any longer. Returns the ticks until it is to be called again; below 0: not before the
    /// next packet or block.
    int settle(jitter_buffer const& received, std::uint32_t now);
    /// Whether settle() has nothing to do.
    bool is_settled(jitter_buffer const& received) const { return is_captured && !is_waiting(received); }
    /// Whether the line needs a block of the stream now.
    bool due(jitter_buffer const& received) const;
    /// Whether nothing but noise is left of the stream.
    bool only_noise(jitter_buffer const& received) const { return made_up.has_faded() && !has_block(received); }
    /// The next 80 samples, made up if there are none.
    str next(jitter_buffer& received, codec& decoder, events& told);
    /// A block of something else is played in the stream's place: what would be heard meanwhile is dropped.
    void skip_block(jitter_buffer& received);

    /// A block of any source went to the line.
    void count_block() { queued++; }
    /// Whether the line has room for a block, as far as this knows.
    bool has_room() const { return queued < most_queued; }

private:
    static constexpr int most_queued = 2;  ///< blocks; drivers take two or three

    /// The time from a packet's arrival until the line takes the block that its first sample is in, plus the packet's
    /// transit time (against a reference one), and how far behind that block's beginning the sample is, ticks. Time is
    /// only won and lost in blocks: the delay may be lowered by `spare` for nothing.
    struct position {
        int slack = 0;
        int spare = 0;
    };

    void forget_delays(std::uint32_t transit);
    void begin(jitter_buffer::packet const& first);
    bool restarts(jitter_buffer const& received, std::uint32_t sequence);
    int offset_of(jitter_buffer::packet const& packet) const;
    bool first_is_playable(jitter_buffer const& received) const;
    bool has_block(jitter_buffer const& received) const;
    bool is_waiting(jitter_buffer const& received) const;
    void pass();
    int until_taken(std::uint32_t arrived) const;
    void measure(jitter_buffer::packet const& packet);
    void note_position(position const& measured);
    void move_delay(int by);
    int surplus() const;
    int spare() const;
    int allowed_cut() const;
    int wanted_stretch() const;
    int wanted_delay() const;
    void note_trouble();

    void fill(jitter_buffer& received, codec& decoder, events& told, int samples);
    void take_more(jitter_buffer& received, codec& decoder, events& told);
    void take(jitter_buffer& received, codec& decoder, events& told);
    bool fit(jitter_buffer const& received, jitter_buffer::packet const& packet);
    void take_event(codec& decoder, str const& payload);
    void take_pause(jitter_buffer::packet const& packet);
    void use_pause();
    void decode_piece(codec& decoder);
    void conceal(jitter_buffer const& received, codec& decoder, int samples);
    void adapt(jitter_buffer& received, codec& decoder, events& told);
    int lower(jitter_buffer& received, codec& decoder, events& told);
    bool in_tones() const;

    arrival_delays delays;
    speech_queue queue;
    concealment made_up;
    /// What is still to be decoded of the packet that is played.
    struct {
        int codec = codec::mu_law;
        str payload;
        int skipped = 0;  ///< samples at its beginning whose time is over
    } pending;

    std::uint32_t media_end = 0;  ///< RTP timestamp behind the last sample in the queue
    position positions[2];        ///< the least of the last packets and of the 16 before them
    std::uint32_t reference = 0;
    int packets_measured = 0;  ///< of the last 16
    int queued = 0;            ///< blocks that the line has
    bool starved = false;      ///< the line had nothing to play
    bool waited = false;       ///< for this block, long enough
    bool jumped = false;       ///< what is decoded next doesn't continue the queue
    bool in_event = false;     ///< the last packet was a telephone event
    int event_samples = 0;     ///< up to the end of the last event's tone in the queue
    int caution;               ///< ticks for which blocks are expected to be short of time after one was
    int careful = 0;           ///< ticks for which a block more is kept and nothing is waited for
    int shortage = 0;          ///< delay wanted beyond what the packets' delays say, 1/16 tick
    int since_change = 0;      ///< ticks since the time scale was changed
    int by_coder = 0;          ///< samples that the coder made up in a row
    int late_in_row = 0;       ///< packets
    totals counted;
    bool is_captured = true;                              ///< the line gives blocks
    std::uint32_t passed_at = 0;                          ///< time when the last block was played
    std::uint32_t line_time = 0;                          ///< ticks that the line played
    std::uint32_t measured_at = 0, measured_arrival = 0;  ///< line's and packet's time at the last measurement
};
