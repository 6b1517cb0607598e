#include "codecs/codec.h"

#include <algorithm>
#include <cstring>

#include "codecs/g711.h"
#include "lib/bytes.h"
#include "lib/pcm.h"

namespace {

// A string of n bytes, to be filled.
str room(int n) {
    return str(nullptr, n);
}

int samples_of(str const& pcm) {
    return pcm.length() / pcm::sample_bytes;
}

}  // namespace

// Indexed by codec number.
codec::coder_pair const codec::coders[] = {
    {&codec::pass, &codec::pass},
    {&codec::encode_mu_law, &codec::decode_mu_law},
    {&codec::encode_a_law, &codec::decode_a_law},
#if FXSMEDIA_G729
    {&codec::encode_g729, &codec::decode_g729},
#else
    {&codec::encode_mu_law, &codec::decode_mu_law},
#endif
    {&codec::encode_gsm, &codec::decode_gsm},
    {&codec::encode_g722, &codec::decode_g722},
    {&codec::encode_g726, &codec::decode_g726},
    {&codec::encode_mu_law, &codec::decode_event},
};

codec::coder_pair const& codec::find(int number) {
    constexpr int count = sizeof coders / sizeof coders[0];
    return coders[number >= 0 && number < count ? number : mu_law];
}

codec::codec() {
    clear();
}

void codec::clear() {
    gsm_both.clear();
#if FXSMEDIA_G729
    g729a_init(g729_encoder);
    g729a_init(g729_decoder);
#endif
    event_tone.clear();
    last_event_duration = 0;
}

void codec::reset(int number) {
    if (number == gsm_full_rate)
        gsm_both.reset_encoder();
#if FXSMEDIA_G729
    if (number == g729)
        g729a_init(g729_encoder);
#endif
}

str codec::encode(int number, str const& pcm) {
    if (number != gsm_full_rate && number != g722_64)
        gsm_both.drop_remainder();
    return (this->*find(number).encode)(pcm);
}

str codec::decode(int number, str const& payload) {
    if (number != telephone_event)
        last_event_duration = 0;
    concealed = 0;
    return (this->*find(number).decode)(payload);
}

bool codec::has_concealment(int number) {
#if FXSMEDIA_G729
    if (number == g729)
        return true;
#endif
    return number == gsm_full_rate;
}

str codec::conceal(int number) {
    if (number == gsm_full_rate)
        return gsm_both.conceal();
#if FXSMEDIA_G729
    constexpr int most_frames = 6;  // beyond, the excitation of the speech before has little to do with it
    if (number == g729 && concealed++ < most_frames) {
        std::int16_t speech[g729a_frame_samples];
        g729a_conceal_frame(g729_decoder, speech);
        return str(reinterpret_cast<unsigned char const*>(speech), sizeof speech);
    }
#endif
    return str();
}

codec::unit codec::unit_of(int number, int payload_bytes) {
    switch (number) {
        case linear: return {1, 1};
#if FXSMEDIA_G729
        case g729: return {g729a_frame_bytes, pcm::block_bytes};
#endif
        case gsm_full_rate:
            return gsm_coder::holds_pairs(payload_bytes) ? unit{gsm_coder::pair_bytes, 2 * gsm_coder::frame_pcm_bytes}
                                                         : unit{gsm_coder::frame_bytes, gsm_coder::frame_pcm_bytes};
        case g726_32: return {1, 2 * pcm::sample_bytes};
        default: return {1, pcm::sample_bytes};
    }
}

str codec::pass(str const& bytes) {
    return bytes;
}

str codec::encode_mu_law(str const& pcm) {
    int const n = samples_of(pcm);
    str payload = room(n);
    g711::encode_mu_law(pcm.cbuffer(), n, payload.buffer());
    return payload;
}

str codec::decode_mu_law(str const& payload) {
    str pcm = room(payload.length() * pcm::sample_bytes);
    g711::decode_mu_law(payload.cbuffer(), payload.length(), pcm.buffer());
    return pcm;
}

str codec::encode_a_law(str const& pcm) {
    int const n = samples_of(pcm);
    str payload = room(n);
    g711::encode_a_law(pcm.cbuffer(), n, payload.buffer());
    return payload;
}

str codec::decode_a_law(str const& payload) {
    str pcm = room(payload.length() * pcm::sample_bytes);
    g711::decode_a_law(payload.cbuffer(), payload.length(), pcm.buffer());
    return pcm;
}

#if FXSMEDIA_G729
str codec::encode_g729(str const& pcm) {
    int const frames = pcm.length() / pcm::block_bytes;
    str payload = room(frames * g729a_frame_bytes);
    unsigned char const* in = pcm.cbuffer();
    unsigned char* out = payload.buffer();
    for (int i = 0; i < frames; i++, in += pcm::block_bytes, out += g729a_frame_bytes) {
        std::int16_t speech[g729a_frame_samples];
        std::memcpy(speech, in, sizeof speech);
        g729a_encode_frame(g729_encoder, speech, out);
    }
    return payload;
}

str codec::decode_g729(str const& payload) {
    int const frames = payload.length() / g729a_frame_bytes;
    str pcm = room(frames * pcm::block_bytes);
    unsigned char const* in = payload.cbuffer();
    unsigned char* out = pcm.buffer();
    for (int i = 0; i < frames; i++, in += g729a_frame_bytes, out += pcm::block_bytes) {
        std::int16_t speech[g729a_frame_samples];
        g729a_decode_frame(g729_decoder, in, speech);
        std::memcpy(out, speech, sizeof speech);
    }
    return pcm;
}
#endif

str codec::encode_gsm(str const& pcm) {
    return gsm_both.encode(pcm);
}

str codec::decode_gsm(str const& payload) {
    return gsm_both.decode(payload);
}

str codec::encode_g722(str const& pcm) {
    int const n = samples_of(pcm);
    str payload = room(n);
    unsigned char const* in = pcm.cbuffer();
    unsigned char* out = payload.buffer();
    for (int done = 0; done < n; done += pcm::block_samples) {
        int const count = std::min(pcm::block_samples, n - done);
        short samples[pcm::block_samples];
        std::memcpy(samples, in + done * pcm::sample_bytes, static_cast<unsigned>(count * pcm::sample_bytes));
        g722_both.encode(count, samples, out + done);
    }
    return payload;
}

str codec::decode_g722(str const& payload) {
    int const n = payload.length();
    str pcm = room(n * pcm::sample_bytes);
    unsigned char const* in = payload.cbuffer();
    unsigned char* out = pcm.buffer();
    for (int done = 0; done < n; done += pcm::block_samples) {
        int const count = std::min(pcm::block_samples, n - done);
        short samples[pcm::block_samples];
        g722_both.decode(count, samples, in + done);
        std::memcpy(out + done * pcm::sample_bytes, samples, static_cast<unsigned>(count * pcm::sample_bytes));
    }
    return pcm;
}

// The first of two samples is in a byte's lower half.
str codec::encode_g726(str const& pcm) {
    int const n = samples_of(pcm) / 2 * 2;
    str payload = room(n / 2);
    unsigned char const* in = pcm.cbuffer();
    unsigned char* out = payload.buffer();
    for (int done = 0; done < n; done += pcm::block_samples) {
        int const count = std::min(pcm::block_samples, n - done);
        std::int16_t samples[pcm::block_samples];
        unsigned char codewords[pcm::block_samples];
        std::memcpy(samples, in + done * pcm::sample_bytes, static_cast<unsigned>(count * pcm::sample_bytes));
        g726_encoder.encode(count, samples, codewords);
        for (int i = 0; i < count; i += 2)
            *out++ = static_cast<unsigned char>(codewords[i + 1] << 4 | codewords[i]);
    }
    return payload;
}

str codec::decode_g726(str const& payload) {
    int const n = payload.length() * 2;
    str pcm = room(n * pcm::sample_bytes);
    unsigned char const* in = payload.cbuffer();
    unsigned char* out = pcm.buffer();
    for (int done = 0; done < n; done += pcm::block_samples) {
        int const count = std::min(pcm::block_samples, n - done);
        std::int16_t samples[pcm::block_samples];
        unsigned char codewords[pcm::block_samples];
        for (int i = 0; i < count; i += 2, in++) {
            codewords[i] = *in & 15;
            codewords[i + 1] = *in >> 4;
        }
        g726_decoder.decode(count, samples, codewords);
        std::memcpy(out + done * pcm::sample_bytes, samples, static_cast<unsigned>(count * pcm::sample_bytes));
    }
    return pcm;
}

// An event's packets carry its duration so far. A duration that went back is a new event: the difference then
// is huge as an unsigned number and a whole step is played.
str codec::decode_event(str const& payload) {
    constexpr int event_bytes = 4;
    constexpr std::uint32_t longest_step = 640;  // samples, 80 ms
    if (payload.length() != event_bytes)
        return str();
    int const event = payload[0];
    unsigned const volume = payload[1] & 63;
    std::uint32_t const duration = static_cast<std::uint32_t>(utils::str2int(payload.substr(2)));
    std::uint32_t const step = std::min(duration - last_event_duration, longest_step);
    last_event_duration = step < longest_step ? duration : last_event_duration + longest_step;
    if (event >= dtmf_synthesizer::digits)
        return str();
    int const blocks = (static_cast<int>(step) + pcm::block_samples - 1) / pcm::block_samples;
    str tone = room(blocks * pcm::block_bytes);
    for (int i = 0; i < blocks; i++)
        std::memcpy(tone.buffer() + i * pcm::block_bytes, event_tone.get_samples(event, volume).cbuffer(),
                    pcm::block_bytes);
    return tone;
}
