#pragma once

#include <memory>

#include "codecs/codec.h"
#include "dsp/synth.h"
#include "lib/str.h"
#include "media/adaptive_playout.h"
#include "media/jitter_buffer.h"

/// What the telephone hears of one channel, 10 ms at a time: an announcement first, else the decoded packet that is
/// due in the jitter buffer, else a call-progress tone, else silence. Does not know where packets came from. PCM is
/// 16-bit at 8 kHz in host byte order. A channel owns one.
///
/// With the extension `playout` the packets are played by another strategy (adaptive_playout), which takes no notice of
/// the jitter buffer's depth. Announcements and tones are what they are.
class playout {
public:
    /// What came with 10 ms for the line.
    struct events {
        bool starts_talk_spurt = false;   ///< what the line still has queued is to be discarded
        bool announcement_ended = false;  ///< the last piece of the queued PCM was taken
        int buffered_ms = -1;             ///< audio held when a packet was taken for this block; -1: none was
    };

    /// What was done to the stream so far; samples only with the extension `playout`.
    struct totals : adaptive_playout::totals {
        int late = 0;  ///< packets whose turn was over when they came
    };

    /// As the process's extensions say, or others.
    explicit playout(extension_set const& chosen = extensions);

    /// A packet arrived: keeps it in the jitter buffer.
    jitter_buffer::arrival put(jitter_buffer& received, std::uint32_t sequence, bool marker,
                               jitter_buffer::packet const& entry);
    /// Whether the numbers of a sender that steps back are followed at once, as late packets are then.
    bool follows_steps_back() const { return !adaptive; }
    totals get_totals() const;
    /// Whether it wants to know of the line's blocks and of the time of day.
    bool keeps_time() const { return adaptive != nullptr; }
    /// The line played 10 ms, now by the time of day in 8 kHz ticks. Only if it keeps time.
    void pass_block(std::uint32_t now) { adaptive->pass_block(now); }
    /// Whether settle() has nothing to do.
    bool is_settled(jitter_buffer const& received) const { return !adaptive || adaptive->is_settled(received); }
    /// Decides what the next block is made of when that can't wait any longer. Returns the ms until it is to be called
    /// again; -1: not before something came. Only if it keeps time.
    int settle(jitter_buffer const& received, std::uint32_t now);

    /// Whether next() has real audio to give.
    bool available(jitter_buffer const& received) const {
        if (adaptive)
            return available_adaptive(received);
        return received.due() || !decoded.empty() || !pending.payload.empty() || !announcement.empty() || !tone.empty();
    }
    /// The next block of 160 bytes, zeros when there is nothing to play. A remainder of less than 10 ms of a packet is
    /// dropped. A packet of more than 40 ms is decoded piece by piece as it is played; what it holds beyond 3 s is
    /// dropped.
    str next(jitter_buffer& received, codec& decoder, events& told);

    /// Plays a call-progress tone when there is no other audio; false (and silence) for an unknown one.
    bool set_tone(int tone_set, int kind) { return tone.set_tone(tone_set, kind) != 0; }
    /// Queues PCM that is played ahead of everything else; what would make more than 30 s wait is not taken.
    void add_announcement(str const& samples);

private:
    bool available_adaptive(jitter_buffer const& received) const;
    str next_adaptive(jitter_buffer& received, codec& decoder, events& told);
    str take_block();
    void take_announcement(events& told);
    void take_packet(jitter_buffer& received, codec& decoder, events& told);
    int begin_long_packet(jitter_buffer::packet const& packet);
    void decode_piece(codec& decoder);

    std::unique_ptr<adaptive_playout> adaptive;  ///< null without the extension

    int late = 0;  ///< packets

    str decoded;  ///< not yet given to the line
    /// What is still to be decoded of a long packet, empty between packets.
    struct {
        int codec = 0;
        int piece_bytes = 0;
        str payload;
    } pending;
    str announcement;  ///< PCM that goes first
    synth tone;
};
