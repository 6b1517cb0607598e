#include "media/decoded_stream.h"

#include <algorithm>
#include <cstring>

#include "lib/pcm.h"
#include "media/tone_guard.h"

namespace {

using pcm::block_samples;

constexpr int one_ms = pcm::samples_per_ms;
constexpr int longest_by_coder = 120 * one_ms;  // GSM goes on for 320 ms, which are silent at last
constexpr int piece_samples = 40 * one_ms;      // decoded at a time

void copy(speech_queue& queue, unsigned char const* pcm, int samples) {
    std::memcpy(queue.grow(samples), pcm, static_cast<unsigned>(samples * pcm::sample_bytes));
}

int count_samples(str const& pcm) {
    return pcm.length() / pcm::sample_bytes;
}

void fade_in(unsigned char* block) {
    constexpr int faded = 5 * one_ms;
    for (int k = 0; k < faded; k++)
        pcm::store_sample(block, k, cross_fade(0, pcm::load_sample(block, k), k, faded));
}

}  // namespace

int decoded_stream::samples_of(int codec_number, str const& payload) {
    codec::unit const unit = codec::unit_of(codec_number, payload.length());
    return payload.length() / unit.payload_bytes * unit.pcm_bytes / pcm::sample_bytes;
}

int decoded_stream::offset_of(std::uint32_t timestamp) const {
    return std::clamp(static_cast<int>(timestamp - media_end), -longest_jump - 1, longest_jump + 1);
}

bool decoded_stream::ends_in_noise() const {
    return made_up.is_active() ? made_up.has_faded() && !made_up.is_silent() : in_event;
}

bool decoded_stream::holds_tones() const {
    constexpr int longest = speech_queue::longest_period;
    return ::holds_tones(queue.front() - longest, longest + std::min(queue.size(), 2 * longest));
}

// ---- the end of the stream

void decoded_stream::jump_to(std::uint32_t timestamp) {
    jumped = true;
    media_end = timestamp;
}

void decoded_stream::restart_at(std::uint32_t timestamp) {
    pending.payload.clear();
    jumped = !made_up.is_silent();
    media_end = timestamp;
}

void decoded_stream::begin(int codec_number, str const& payload, int samples_over) {
    pending.codec = codec_number;
    pending.skipped = samples_over;
    if (samples_over < samples_of(codec_number, payload))
        pending.payload = payload;
}

void decoded_stream::decode_piece(codec& decoder) {
    codec::unit const unit = codec::unit_of(pending.codec, pending.payload.length());
    int const unit_samples = unit.pcm_bytes / pcm::sample_bytes;
    int const taken = std::max(piece_samples / std::max(unit_samples, 1), 1) * unit.payload_bytes;
    str const piece = pending.payload.leftstr(taken);
    pending.payload = pending.payload.substr(taken);
    str const decoded = decoder.decode(pending.codec, piece);
    int const skipped = std::min(pending.skipped, count_samples(decoded));
    int const n = count_samples(decoded) - skipped;
    pending.skipped -= skipped;
    if (n == 0)
        return;
    copy(queue, decoded.cbuffer() + skipped * pcm::sample_bytes, n);
    media_end += static_cast<std::uint32_t>(n);
    by_coder = 0;
    if (made_up.is_active() || jumped)
        made_up.merge(queue, n);
    jumped = false;
    for (int at = block_samples; at <= n; at += block_samples)
        made_up.hear(queue.back() - at);
}

void decoded_stream::add_event(codec& decoder, str const& payload) {
    str const tone = decoder.decode(codec::telephone_event, payload);
    copy(queue, tone.cbuffer(), count_samples(tone));
    media_end += static_cast<std::uint32_t>(count_samples(tone));
    event_samples = queue.size();
    in_event = true;
    made_up.end();
}

void decoded_stream::end_event() {
    if (in_event)
        made_up.fall_quiet();
    in_event = false;
}

void decoded_stream::conceal(codec& decoder, int samples) {
    if (in_event && !made_up.is_active())
        made_up.fall_quiet();
    bool const is_speech = !made_up.has_faded() && !made_up.is_pausing();
    bool const has_rule = is_speech && !made_up.is_active() && by_coder < longest_by_coder;
    str const own = has_rule ? decoder.conceal(pending.codec) : str();
    int const n = own.empty() ? samples : count_samples(own);
    if (own.empty())
        made_up.extend(queue, n);
    else
        copy(queue, own.cbuffer(), n);
    by_coder += count_samples(own);
    concealed += is_speech ? n : 0;
    media_end += static_cast<std::uint32_t>(n);
}

// ---- the front

str decoded_stream::take_block(bool after_silence) {
    str block;
    block.writable(pcm::block_bytes);
    std::memcpy(block.buffer(), queue.front(), pcm::block_bytes);
    if (after_silence)
        fade_in(block.buffer());
    queue.drop(block_samples);
    event_samples = std::max(event_samples - block_samples, 0);
    return block;
}

void decoded_stream::skip_block() {
    media_end += static_cast<std::uint32_t>(block_samples - queue.size());
    queue.clear();
    event_samples = 0;
    pending.payload.clear();
    made_up.fall_silent();
}

int decoded_stream::cut(int most, speech_queue::likeness wanted) {
    return queue.cut(std::min(most, queue.size() - block_samples), wanted);
}
