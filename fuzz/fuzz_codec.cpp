// Every coder with payloads and PCM that no sane far end sends. However a stream is cut into calls, the same comes out,
// of the right length; each direction is untouched by what the other does.
//
// g711, g722, g726, gsm, g729: 1 byte of how many units a call gets, then up to 400 bytes as payload and as big-endian
// PCM.

#include <algorithm>

#include "codecs/codec.h"
#include "fuzz/fuzz_target.h"
#include "lib/pcm.h"

namespace {

/// The smallest payload that stands alone, and its PCM.
struct coder {
    int number;
    int unit_bytes;
    int unit_pcm_bytes;

    int pcm_bytes_of(int payload_bytes) const {
        constexpr int wav_pair = 65;
        if (number == codec::gsm_full_rate && payload_bytes % unit_bytes != 0)
            return payload_bytes / wav_pair * 2 * unit_pcm_bytes;
        return payload_bytes / unit_bytes * unit_pcm_bytes;
    }
};
constexpr coder coders[] = {{codec::linear, 1, 1},
                            {codec::mu_law, 1, 2},
                            {codec::a_law, 1, 2},
                            {codec::g729, FXSMEDIA_G729 ? 10 : 1, FXSMEDIA_G729 ? 160 : 2},
                            {codec::gsm_full_rate, 33, 320},
                            {codec::g722_64, 1, 2},
                            {codec::g726_32, 1, 4}};

/// Big-endian samples, so that an input means the same everywhere.
str pcm_of(str const& bytes) {
    str pcm;
    pcm.writable(bytes.length() / 2 * pcm::sample_bytes);
    for (int i = 0; i < bytes.length() / 2; i++)
        pcm::store_sample(pcm.buffer(), i, static_cast<std::int16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]));
    return pcm;
}

/// What the codec makes of `data`, given in pieces.
template <typename operation>
str in_pieces(str const& data, int piece_bytes, operation code) {
    str all;
    for (int at = 0; at < data.length(); at += piece_bytes)
        all += code(data.substr(at, piece_bytes));
    return all;
}

void check_decoder(coder const& c, str const& payload, int units) {
    codec once, often;
    str const pcm = once.decode(c.number, payload);
    FUZZ_CHECK(pcm.length() == c.pcm_bytes_of(payload.length()));
    str const whole = payload.leftstr(payload.length() / c.unit_bytes * c.unit_bytes);
    if (whole.length() == payload.length() || c.number != codec::gsm_full_rate)
        FUZZ_CHECK(pcm ==
                   in_pieces(whole, units * c.unit_bytes, [&](str const& p) { return often.decode(c.number, p); }));
}

void check_encoder(coder const& c, str const& pcm, int units) {
    codec once, often;
    str const payload = once.encode(c.number, pcm);
    FUZZ_CHECK(payload.length() == pcm.length() / c.unit_pcm_bytes * c.unit_bytes);
    bool const keeps_remainder = c.number == codec::gsm_full_rate;
    int const piece = keeps_remainder ? units : units * c.unit_pcm_bytes;
    FUZZ_CHECK(payload == in_pieces(pcm, piece, [&](str const& p) { return often.encode(c.number, p); }));
    FUZZ_CHECK(once.decode(c.number, payload).length() == c.pcm_bytes_of(payload.length()));
}

/// Returns the bytes that were coded.
str check_coder(fuzz_input& input, int number) {
    int const units = 1 + input.below(200);
    str const bytes = input.bytes(400);
    check_decoder(coders[number], bytes, units);
    check_encoder(coders[number], pcm_of(bytes), units);
    return bytes;
}

}  // namespace

FUZZ_TARGET(g711) {
    str const bytes = check_coder(input, codec::mu_law);
    for (int const number : {codec::a_law, codec::linear}) {
        fuzz_input again(bytes.cbuffer(), static_cast<std::size_t>(bytes.length()));
        check_coder(again, number);
    }
}

FUZZ_TARGET(g722) {
    check_coder(input, codec::g722_64);
}

/// The decoder follows the encoder exactly, at all rates: the code of a sample is what both know of it.
FUZZ_TARGET(g726) {
    str const bytes = check_coder(input, codec::g726_32);
    constexpr g726::rate rates[] = {g726::rate::bits2, g726::rate::bits3, g726::rate::bits4, g726::rate::bits5};
    g726 encoder, decoder;
    for (int i = 0; i + 1 < bytes.length(); i += 2) {
        g726::rate const rate = rates[bytes[i - i % 64] % 4];
        encoder.set_rate(rate);
        decoder.set_rate(rate);
        unsigned const sample = static_cast<unsigned>(bytes[i] << 8 | bytes[i + 1]);
        g726 follower = encoder;
        unsigned const code = encoder.encode(sample);
        FUZZ_CHECK(code >> static_cast<unsigned>(rate) == 0);
        int const heard = decoder.decode(code);
        FUZZ_CHECK(heard == follower.decode(code));
        FUZZ_CHECK(heard % 4 == 0 && heard >= -32768 && heard <= 32764);
    }
}

FUZZ_TARGET(gsm) {
    check_coder(input, codec::gsm_full_rate);
}

#if FXSMEDIA_G729
/// Frames that are lost or have a wrong parity bit, too: every 11th byte of the input says so.
FUZZ_TARGET(g729) {
    str const bytes = check_coder(input, codec::g729);
    static g729a_state encoder, decoder;
    g729a_init(encoder);
    g729a_init(decoder);
    for (int at = 0; at + g729a_frame_bytes < bytes.length(); at += g729a_frame_bytes + 1) {
        unsigned char const* const frame = bytes.cbuffer() + at + 1;
        std::int16_t parm[g729a_parm_words] = {}, synth[80], a_t[2][11], t0[2];
        std::uint8_t packed[g729a_frame_bytes];
        bits2prm_ld8k(frame, parm + g729a_parm_first);
        prm2bits_ld8k(parm + g729a_parm_first, packed);
        FUZZ_CHECK(std::equal(packed, packed + g729a_frame_bytes, frame));
        parm[g729a_parm_bad_frame] = bytes[at] & 1;
        parm[g729a_parm_parity] = bytes[at] >> 1 & 1;
        lrcodec_obj = &decoder;
        Decod_ld8a(parm, synth, a_t, t0);
        for (int i = 0; i < 2; i++)
            FUZZ_CHECK(t0[i] >= 19 && t0[i] <= 144 && a_t[i][0] == 4096);
        Post_Filter(synth, a_t, t0);
        Post_Process(synth, g729a_frame_samples);
        g729a_encode_frame(encoder, synth, packed);
        bits2prm_ld8k(packed, parm + g729a_parm_first);
        FUZZ_CHECK(parm[g729a_parm_parity] == g729a_pitch_parity(parm[g729a_parm_p1]));
    }
}
#endif

/// Telephone events: the tone grows with the event's duration, by at most 80 ms a packet. Each step: 1 byte, 0 for a
/// packet of another kind, else its payload of 4 bytes, or of another length above 250.
FUZZ_TARGET(event) {
    codec decoder;
    std::uint32_t played = 0;
    while (input.more()) {
        unsigned const what = input.byte();
        if (what == 0) {
            decoder.decode(codec::mu_law, str());
            played = 0;
            continue;
        }
        str const payload = input.bytes(what > 250 ? what - 250 : 4);
        str const tone = decoder.decode(codec::telephone_event, payload);
        if (payload.length() != 4) {
            FUZZ_CHECK(tone.empty());
            continue;
        }
        std::uint32_t const duration = static_cast<std::uint32_t>(payload[2] << 8 | payload[3]);
        std::uint32_t const more = duration >= played && duration - played <= 640 ? duration - played : 640;
        played += more;
        int const blocks = payload[0] < dtmf_synthesizer::digits ? static_cast<int>(more + 79) / 80 : 0;
        FUZZ_CHECK(tone.length() == blocks * 160);
    }
}
