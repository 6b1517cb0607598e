#pragma once

#include "lib/str.h"

struct gsm_state;

/// GSM 06.10 full rate (libgsm) for one channel: an encoder and a decoder with their own states.
///
/// PCM is 16 bits at 8 kHz, host byte order. The encoder makes plain 33-byte frames of 20 ms; the decoder
/// also understands the frame pairs of 65 bytes that WAV files use (WAVE format 0x31, "WAV49"). libgsm keeps
/// its states on the heap; they are created and freed only here.
class gsm_coder {
public:
    static constexpr int frame_samples = 160;
    static constexpr int frame_pcm_bytes = 2 * frame_samples;
    static constexpr int frame_bytes = 33;  ///< 4 bits of magic 0xD and 260 bits of speech
    static constexpr int pair_bytes = 65;   ///< 2 x 260 bits, no magic

    gsm_coder();
    ~gsm_coder();
    gsm_coder(gsm_coder const&) = delete;
    gsm_coder& operator=(gsm_coder const&) = delete;

    /// Fresh states of both directions; the remainder stays.
    void clear();

    /// Fresh state of the encoder; the remainder stays.
    void reset_encoder();

    /// Drops the PCM that waits for the rest of its frame.
    void drop_remainder() { pending_bytes = 0; }

    /// The frames that the remainder and `pcm` fill, 33 bytes each; what is left becomes the remainder.
    str encode(str const& pcm);

    /// Whether a payload of this length holds frame pairs: one that is a multiple of 33 holds plain frames.
    static bool holds_pairs(int payload_bytes) { return payload_bytes % frame_bytes != 0; }
    /// 320 bytes of PCM for each frame; incomplete pairs at the end are ignored. A plain frame without the magic gives
    /// silence.
    str decode(str const& payload);
    /// What is heard in place of a frame that is lost (GSM 06.11): the last good one, then quieter from frame to frame.
    /// Empty when that has faded away, and when frames come in pairs.
    str conceal();

private:
    static constexpr int parameters = 76;  ///< of a frame: 8 and 4 x 17

    void remember(unsigned char const* frame);
    void decode_frame(unsigned char const* frame, unsigned char* pcm);

    gsm_state* encoder;
    gsm_state* decoder;
    short pending[frame_samples];      ///< the frame that is being filled
    int pending_bytes;                 ///< how much of it is filled; PCM may come in odd pieces
    short last_good[parameters] = {};  ///< parameters of the last plain frame, quieter when it was repeated
    int repeated = -1;                 ///< how often it was; -1: there is none
    unsigned grid = 1;                 ///< of random grid positions
};
