#pragma once

#include <cstdint>

#include "codecs/codec.h"
#include "media/concealment.h"
#include "media/speech_queue.h"

/// A received stream as it is heard, up to the point to which it is made so far: what packets hold, decoded when it is
/// needed, and what is made up between them, by the coder's own rule where it has one, else from the waveform
/// (concealment). Knows how far that is in RTP time, and nothing of when it is heard. In steady state only the strings
/// that codec::decode() returns are taken, from the pool.
class decoded_stream {
public:
    /// Timestamps further apart than this (3 s) are no gap: the sender began anew.
    static constexpr int longest_jump = 3000 * 8;

    /// Samples that a packet's payload holds; of a telephone event and of comfort noise nothing that means anything.
    static int samples_of(int codec_number, str const& payload);

    // ---- state
    /// Samples that wait to be heard.
    int size() const { return queue.size(); }
    /// Whether a packet was begun that is not decoded to its end.
    bool has_more() const { return !pending.payload.empty(); }
    /// Samples from the end of the stream to this RTP timestamp, longest_jump and one at most; below 0: its time is
    /// over.
    int offset_of(std::uint32_t timestamp) const;
    /// Whether only noise is left of the stream, or not even that.
    bool has_faded() const { return made_up.has_faded(); }
    /// Whether nothing is left of it: before the first packet, and long after the last one.
    bool is_silent() const { return made_up.is_silent(); }
    /// Whether what is made up next is noise.
    bool ends_in_noise() const;
    /// Whether a telephone event's tone waits.
    bool holds_event() const { return event_samples > 0; }
    /// Whether what a change of the time scale would touch is a digit or a call-progress tone.
    bool holds_tones() const;
    /// Samples of speech that were made up.
    std::int64_t get_concealed() const { return concealed; }

    // ---- the end of the stream
    /// The end is at this RTP timestamp: what is decoded next continues what is there.
    void continue_at(std::uint32_t timestamp) { media_end = timestamp; }
    /// The same, but what is decoded next does not continue it.
    void jump_to(std::uint32_t timestamp);
    /// Another stream follows. The rest of the packet that was begun is dropped.
    void restart_at(std::uint32_t timestamp);
    /// So much of RTP time passes without being heard (below 0: is heard twice).
    void leave_out(int ticks) { media_end += static_cast<std::uint32_t>(ticks); }
    /// Begins a packet of speech, without the samples at its beginning whose time is over. has_more() must be false.
    void begin(int codec_number, str const& payload, int samples_over);
    /// Adds at most 40 ms of the packet that was begun.
    void decode_piece(codec& decoder);
    /// Adds what an event's packet plays of its tone. It is neither stretched nor made up.
    void add_event(codec& decoder, str const& payload);
    /// A packet of something else came.
    void end_event();
    /// The far end pauses, and this noise is to be heard until speech comes.
    void pause(noise_shape const& told) { made_up.pause(told); }
    /// Adds samples that no packet gives: so many, or a frame of the coder's own rule.
    void conceal(codec& decoder, int samples);

    // ---- the front
    /// The next 80 samples; so many must wait. Faded in after silence that nobody wanted.
    str take_block(bool after_silence);
    /// A block of something else is heard in the stream's place: what would be heard meanwhile is dropped.
    void skip_block();
    /// speech_queue::cut(); leaves a block.
    int cut(int most, speech_queue::likeness wanted);
    /// speech_queue::stretch().
    int stretch(int most, speech_queue::likeness wanted) { return queue.stretch(most, wanted); }

private:
    speech_queue queue;
    concealment made_up;
    /// What is still to be decoded of the packet that is played.
    struct {
        int codec = codec::mu_law;
        str payload;
        int skipped = 0;  ///< samples at its beginning whose time is over
    } pending;
    std::uint32_t media_end = 0;  ///< RTP timestamp behind the last sample in the queue
    bool jumped = false;          ///< what is decoded next doesn't continue the queue
    bool in_event = false;        ///< the last packet was a telephone event
    int event_samples = 0;        ///< up to the end of the last event's tone in the queue
    int by_coder = 0;             ///< samples that the coder made up in a row
    std::int64_t concealed = 0;
};
