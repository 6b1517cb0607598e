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
/// plays as far as its time is not over. On a line where nothing was lost or late for a while, packets are played as
/// they come; else 10 ms more wait, because a loss is only known when the line wants the block.
///
/// The line's blocks are the clock: pass_block() tells that one was played. Between two of them at most two blocks are
/// given out. All other times come with the packets, in 8 kHz ticks. In steady state only the strings that
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
        std::int64_t concealed = 0;  ///< made up, until it is silent
        std::int64_t cut = 0;        ///< left out to lower the delay
        std::int64_t stretched = 0;  ///< put in to make it longer
        int late = 0;                ///< packets whose turn was over when they came
    };
    adaptive_playout();

    totals const& get_totals() const { return counted; }

    /// A packet arrived; put() of the jitter buffer. An event's time of sending is not known: it says nothing of
    /// delays.
    jitter_buffer::arrival put(jitter_buffer& received, std::uint32_t sequence, jitter_buffer::packet const& entry);
    /// The line played 10 ms.
    void pass_block();
    /// Whether the line needs a block of the stream now.
    bool due(jitter_buffer const& received) const;
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

    void begin(std::uint32_t timestamp);
    bool restarts(jitter_buffer const& received, std::uint32_t sequence);
    int offset_of(jitter_buffer::packet const& packet) const;
    bool first_is_playable(jitter_buffer const& received) const;
    bool has_block(jitter_buffer const& received) const;
    void measure(jitter_buffer::packet const& packet);
    void note_delay(int measured);
    void move_delay(int by);
    int get_delay() const { return delays_heard[0] < delays_heard[1] ? delays_heard[0] : delays_heard[1]; }
    int wanted_delay() const;
    void note_trouble();

    void fill(jitter_buffer& received, codec& decoder, events& told, int samples);
    void take_more(jitter_buffer& received, codec& decoder, events& told);
    void take(jitter_buffer& received, codec& decoder, events& told);
    bool fit(jitter_buffer const& received, jitter_buffer::packet const& packet);
    void take_event(codec& decoder, str const& payload);
    void decode_piece(codec& decoder);
    void conceal(codec& decoder, int samples);
    void adapt(jitter_buffer& received, codec& decoder, events& told);

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
    /// Delay of what is heard against the fastest packet, ticks: the least that the last 16 packets saw, and the 16
    /// before them. Blocks make a measurement up to 10 ms too high, never too low.
    int delays_heard[2] = {};
    int packets_measured = 0;  ///< of the last 16
    int queued = 0;            ///< blocks that the line has
    bool starved = false;      ///< the line had nothing to play
    bool jumped = false;       ///< what is decoded next doesn't continue the queue
    bool in_event = false;     ///< the last packet was a telephone event
    int event_samples = 0;     ///< up to the end of the last event's tone in the queue
    int caution;               ///< ticks for which trouble is expected after trouble
    int careful = 0;           ///< ticks for which a block more is kept
    int shortage = 0;          ///< delay wanted beyond what the packets' delays say, 1/16 tick
    int since_change = 0;      ///< ticks since the time scale was changed
    int erased = 0;            ///< samples that the coder made up in a row
    int late_in_row = 0;       ///< packets
    totals counted;
    std::uint32_t line_time = 0;                          ///< ticks that the line played
    std::uint32_t measured_at = 0, measured_arrival = 0;  ///< line's and packet's time at the last measurement
};
