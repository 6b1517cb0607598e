#pragma once

#include <cstdint>

#include "codecs/g722.h"
#include "codecs/g726.h"
#include "codecs/gsm_coder.h"
#include "dsp/dtmf_synthesizer.h"
#include "lib/protocol.h"
#include "lib/str.h"

#if FXSMEDIA_G729
#include "codecs/g729a/g729a.h"
#endif

/// All speech coders of one channel and their states, side by side, so that the codec may change from one
/// packet to the next. Turns 16-bit PCM at 8 kHz (host byte order) into RTP payloads and back.
///
/// Knows nothing of RTP: no headers, no payload types, no loss. It reports no errors: what does not fill a
/// frame is dropped, what is no valid payload gives no audio. Encoding and decoding allocate only the string
/// that they return. A channel owns one object for its whole life; it cannot be copied.
class codec {
public:
    /// Codec numbers; any other number means mu-law. In a build without G.729 (FXSMEDIA_G729 off) 3 is such a
    /// number.
    /// The samples as they are.
    static constexpr int linear = protocol::codec_number::linear;
    /// G.711, 1 byte a sample.
    static constexpr int mu_law = protocol::codec_number::pcmu;
    static constexpr int a_law = protocol::codec_number::pcma;
    /// G.729 Annex A, 10 bytes a frame of 80 samples.
    static constexpr int g729 = protocol::codec_number::g729;
    /// GSM 06.10, 33 bytes a frame of 160 samples, or 65 for two.
    static constexpr int gsm_full_rate = protocol::codec_number::gsm;
    /// G.722 at 64 kbit/s, 1 byte a sample (8 kHz on our side).
    static constexpr int g722_64 = protocol::codec_number::g722;
    /// G.726 at 32 kbit/s, 2 samples a byte, the first in the low bits.
    static constexpr int g726_32 = protocol::codec_number::g726;
    /// RFC 4733, 4 bytes; only decoded.
    static constexpr int telephone_event = protocol::codec_number::telephone_event;
    /// RFC 3389, no number of the protocol's; who plays it makes the noise, nothing is decoded.
    static constexpr int comfort_noise = 256;

    codec();
    ~codec() = default;
    codec(codec const&) = delete;
    codec& operator=(codec const&) = delete;

    /// For a new call: fresh states of GSM, G.729 and the event tone. G.722, G.726 and the PCM that waits for
    /// its GSM frame stay.
    void clear();

    /// Fresh encoder state for GSM (4) or G.729 (3); other numbers: nothing.
    void reset(int number);

    /// The payload for `pcm`. Only GSM keeps what does not fill a frame, for its next call; encoding with any
    /// number but 4 and 5 drops it.
    str encode(int number, str const& pcm);

    /// The PCM of a payload of any length. A telephone event plays as much of its tone as its duration grew
    /// since the last one (80 ms at most, in whole blocks of 10 ms); decoding with any number but 7 forgets
    /// the last duration.
    str decode(int number, str const& payload);

    /// What is heard in place of lost speech by the coder's own rule, the state included: a frame of it. Empty for
    /// coders without one, and when it is at its end (G.729: 60 ms).
    str conceal(int number);
    /// Whether the coder has one.
    static bool has_concealment(int number);

    /// The smallest piece of a payload that gives its part of the audio by itself.
    struct unit {
        int payload_bytes;
        int pcm_bytes;
    };
    /// Of a payload of this length. Decoding its whole units in pieces, 30 at most at a time, gives the same PCM as
    /// decoding all of it. Not for telephone events, whose PCM depends on the events before.
    static unit unit_of(int number, int payload_bytes);

private:
    using coder = str (codec::*)(str const&);
    struct coder_pair {
        coder encode;
        coder decode;
    };
    static coder_pair const coders[];
    static coder_pair const& find(int number);

    str pass(str const& bytes);
    str encode_mu_law(str const& pcm);
    str decode_mu_law(str const& payload);
    str encode_a_law(str const& pcm);
    str decode_a_law(str const& payload);
#if FXSMEDIA_G729
    str encode_g729(str const& pcm);
    str decode_g729(str const& payload);
#endif
    str encode_gsm(str const& pcm);
    str decode_gsm(str const& payload);
    str encode_g722(str const& pcm);
    str decode_g722(str const& payload);
    str encode_g726(str const& pcm);
    str decode_g726(str const& payload);
    str decode_event(str const& payload);

    gsm_coder gsm_both;
    g726 g726_encoder;
    g726 g726_decoder;
#if FXSMEDIA_G729
    g729a_state g729_encoder;
    g729a_state g729_decoder;
#endif
    g722 g722_both;
    dtmf_synthesizer event_tone;
    int concealed = 0;                  ///< G.729 frames in a row
    std::uint32_t last_event_duration;  ///< 8 kHz ticks of the current event that have been played
};
