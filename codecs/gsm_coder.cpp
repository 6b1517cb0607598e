#include "codecs/gsm_coder.h"

#include <gsm.h>

#include <cstdlib>
#include <cstring>

namespace {

gsm_state* create() {
    gsm_state* const state = gsm_create();
    if (state == nullptr)
        std::abort();  // no memory left
    return state;
}

void renew(gsm_state*& state) {
    gsm_destroy(state);
    state = create();
}

}  // namespace

gsm_coder::gsm_coder() : encoder(create()), decoder(create()), pending_bytes(0) {}

gsm_coder::~gsm_coder() {
    gsm_destroy(encoder);
    gsm_destroy(decoder);
}

void gsm_coder::clear() {
    renew(encoder);
    renew(decoder);
    repeated = -1;
}

void gsm_coder::reset_encoder() {
    renew(encoder);
}

str gsm_coder::encode(str const& pcm) {
    unsigned char* const frame = reinterpret_cast<unsigned char*>(pending);
    unsigned char const* in = pcm.cbuffer();
    int left = pcm.length();
    int const frames = (pending_bytes + left) / frame_pcm_bytes;
    str coded;
    coded.writable(frames * frame_bytes);
    unsigned char* out = coded.buffer();
    for (int i = 0; i < frames; i++, out += frame_bytes) {
        int const missing = frame_pcm_bytes - pending_bytes;
        std::memcpy(frame + pending_bytes, in, static_cast<unsigned>(missing));
        gsm_encode(encoder, pending, out);
        in += missing;
        left -= missing;
        pending_bytes = 0;
    }
    std::memcpy(frame + pending_bytes, in, static_cast<unsigned>(left));
    pending_bytes += left;
    return coded;
}

// In the pair format libgsm counts the halves itself. Pairs are always decoded whole, so that each begins with
// a first half (32 bytes and 4 bits), whatever came before it.
str gsm_coder::decode(str const& payload) {
    int pair_format = holds_pairs(payload.length());
    gsm_option(decoder, GSM_OPT_WAV49, &pair_format);
    int const unit_bytes = pair_format ? pair_bytes : frame_bytes;
    int const unit_frames = pair_format ? 2 : 1;
    int const units = payload.length() / unit_bytes;
    repeated = pair_format || units == 0 ? -1 : 0;
    if (repeated == 0)
        remember(payload.cbuffer() + (units - 1) * frame_bytes);
    str pcm;
    pcm.writable(units * unit_frames * frame_pcm_bytes);
    unsigned char const* in = payload.cbuffer();
    unsigned char* out = pcm.buffer();
    for (int i = 0; i < units; i++, in += unit_bytes)
        for (int frame = 0; frame < unit_frames; frame++, out += frame_pcm_bytes)
            decode_frame(in + frame * frame_bytes, out);
    return pcm;
}

void gsm_coder::decode_frame(unsigned char const* frame, unsigned char* pcm) {
    gsm_signal samples[frame_samples] = {};                      // a frame without magic leaves it as it is
    gsm_decode(decoder, const_cast<gsm_byte*>(frame), samples);  // reads the frame only
    std::memcpy(pcm, samples, sizeof samples);
}

void gsm_coder::remember(unsigned char const* frame) {
    if (gsm_explode(decoder, const_cast<gsm_byte*>(frame), last_good) != 0)
        repeated = -1;
}

str gsm_coder::conceal() {
    constexpr int subframes = 4, subframe_parameters = 17, first = 8, grid_position = 2, amplitude = 3, quieter = 4;
    if (repeated < 0)
        return str();
    bool audible = repeated == 0;
    for (int i = 0; i < subframes && repeated > 0; i++) {
        short* const p = last_good + first + i * subframe_parameters;
        audible = audible || p[amplitude] > quieter;
        p[amplitude] = static_cast<short>(p[amplitude] > quieter ? p[amplitude] - quieter : 0);
        grid = grid * 1103515245 + 12345;
        p[grid_position] = static_cast<short>(grid >> 16 & 3);
    }
    repeated++;
    if (!audible)
        return str();
    unsigned char frame[frame_bytes];
    gsm_implode(decoder, last_good, frame);
    str pcm;
    pcm.writable(frame_pcm_bytes);
    decode_frame(frame, pcm.buffer());
    return pcm;
}
