#include "media/adaptive_playout.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lib/pcm.h"

namespace {

using pcm::block_samples;

constexpr int one_ms = pcm::samples_per_ms;
constexpr int careful_at_start = 10000 * one_ms;  // chosen: a clean network is believed after 10 s ...
constexpr int first_caution = 60000 * one_ms;     // ... and again a minute after it was not, twice as long each time
constexpr int longest_caution = 60 * first_caution;
constexpr int longest_jump = 3000 * one_ms;     // of timestamps; beyond, the sender began anew
constexpr int longest_lateness = 300 * one_ms;  // chosen: speech that was held up longer is dropped, not caught up with
constexpr int held_up = 60 * one_ms;            // what comes later than this was held up with what follows it
// Lateness that the packets' delays don't explain (clocks that drift fast, packets that begin in the midst of a block):
// 2 ms more for each packet that comes too late in part, 0.8 ms less a second, in 1/16 tick.
constexpr int shortage_unit = 16;
constexpr int shortage_step = 2 * one_ms * shortage_unit;
constexpr int most_shortage = 20 * one_ms * shortage_unit;
constexpr int piece_samples = 40 * one_ms;          // decoded at a time
constexpr std::uint32_t clock_step = 500 * one_ms;  // arrival times against the line: the system's clock was set
constexpr int far_back = 100, far_back_packets = 3, back_packets = 25;  // numbers that tell a restart from lateness

/// How fast the delay is brought down: the more there is too much, the sooner and the rougher.
struct haste {
    int surplus;  ///< ticks
    int pause;    ///< ticks between two changes
    speech_queue::likeness likeness;
};
constexpr haste hastes[] = {
    {200 * one_ms, 10 * one_ms, {0}},
    {100 * one_ms, 20 * one_ms, {256}},  // correlation of 0.5
    {40 * one_ms, 20 * one_ms, {500}},   // 0.7
    {10 * one_ms, 60 * one_ms, {830}},   // 0.9
};
constexpr haste lowering{-5 * one_ms, 60 * one_ms, {830}};
constexpr haste at_rest{5 * one_ms, 200 * one_ms, {830}};           // down to what is needed ...
constexpr haste at_rest_clean{5 * one_ms / 2, 60 * one_ms, {830}};  // ... to the last on a clean network

int samples_of(jitter_buffer::packet const& packet) {
    codec::unit const unit = codec::unit_of(packet.codec, packet.payload.length());
    return packet.payload.length() / unit.payload_bytes * unit.pcm_bytes / pcm::sample_bytes;
}

/// After silence that nobody wanted.
void fade_in(str& block) {
    constexpr int faded = 5 * one_ms;
    unsigned char* const samples = block.buffer();
    for (int k = 0; k < faded; k++)
        pcm::store_sample(samples, k, cross_fade(0, pcm::load_sample(samples, k), k, faded));
}

}  // namespace

// ---- packets

adaptive_playout::adaptive_playout() : caution(first_caution) {}

jitter_buffer::arrival adaptive_playout::put(jitter_buffer& received, std::uint32_t sequence,
                                             jitter_buffer::packet const& entry) {
    if (!received.is_playing() || restarts(received, sequence)) {
        received.stop();
        received.play_from(sequence);
        begin(entry.timestamp);
    }
    jitter_buffer::arrival const arrival = received.store(sequence, entry);
    if (entry.codec != codec::telephone_event)
        measure(entry);
    return arrival;
}

/// The first packet of a stream is heard after the delay that is wanted.
void adaptive_playout::begin(std::uint32_t timestamp) {
    delays.clear();
    pending.payload.clear();
    careful = std::max(careful, careful_at_start);
    media_end = timestamp - static_cast<std::uint32_t>(wanted_delay() - queue.size() - queued * block_samples);
    jumped = !made_up.is_silent();
    delays_heard[0] = delays_heard[1] = wanted_delay();
    packets_measured = 0;
    late_in_row = 0;
}

/// Late packets are single; a sender that numbers anew goes on with the lower numbers.
bool adaptive_playout::restarts(jitter_buffer const& received, std::uint32_t sequence) {
    if (sequence > received.get_last_played()) {
        late_in_row = 0;
        return false;
    }
    note_trouble();
    bool const far = received.get_last_played() - sequence > far_back;
    return ++late_in_row >= (far ? far_back_packets : back_packets);
}

/// Ticks from the end of the queue to the packet's first sample, 3 s and one at most; below 0: its time is over.
int adaptive_playout::offset_of(jitter_buffer::packet const& packet) const {
    return std::clamp(static_cast<int>(packet.timestamp - media_end), -longest_jump - 1, longest_jump + 1);
}

bool adaptive_playout::first_is_playable(jitter_buffer const& received) const {
    if (received.empty())
        return false;
    int const offset = offset_of(received.get_first());
    return offset <= 0 || offset > longest_jump;
}

/// Whether the packets give 10 ms; those behind the first one are taken for as long as it.
bool adaptive_playout::has_block(jitter_buffer const& received) const {
    int samples = queue.size();
    if (first_is_playable(received)) {
        jitter_buffer::packet const& first = received.get_first();
        int const length = samples_of(first);
        if (first.codec == codec::telephone_event || length == 0 || std::abs(offset_of(first)) > held_up)
            return true;
        samples += length * received.get_held();
    }
    return samples >= block_samples || !pending.payload.empty();
}

/// Brings the delay up to date: how early the packet came for its own time, and how much later than the fastest one.
void adaptive_playout::measure(jitter_buffer::packet const& packet) {
    std::uint32_t const arrival = packet.received.get_rtp_timestamp();
    if ((arrival - measured_arrival) - (line_time - measured_at) + clock_step > 2 * clock_step)
        delays.clear();
    measured_arrival = arrival;
    measured_at = line_time;
    int const heard_before_end = queue.size() + queued * block_samples;
    note_delay(offset_of(packet) + heard_before_end + delays.add(packet.timestamp, arrival));
}

void adaptive_playout::note_delay(int measured) {
    constexpr int period = 16;
    if (packets_measured++ % period == 0) {
        delays_heard[1] = delays_heard[0];
        delays_heard[0] = measured;
    }
    delays_heard[0] = std::min(delays_heard[0], measured);
}

void adaptive_playout::move_delay(int by) {
    delays_heard[0] += by;
    delays_heard[1] += by;
}

int adaptive_playout::wanted_delay() const {
    int const usual = delays.get_usual() + shortage / shortage_unit;
    return careful > 0 ? std::max(usual, block_samples + shortage / shortage_unit) : usual;
}

void adaptive_playout::note_trouble() {
    careful = caution;
}

// ---- the line's time

void adaptive_playout::pass_block() {
    line_time += block_samples;
    careful = std::max(careful - block_samples, 0);
    shortage = std::max(shortage - 1, 0);
    if (queued > 0) {
        queued--;
    } else if (made_up.is_silent()) {
        media_end += block_samples;
    } else {
        starved = true;
        move_delay(block_samples);
        if (careful == 0)
            caution = std::min(2 * caution, longest_caution);
        note_trouble();
    }
}

bool adaptive_playout::due(jitter_buffer const& received) const {
    if (!has_room())
        return false;
    if (has_block(received))
        return true;
    if (queued > 0)
        return false;
    bool const will_not_wait = careful > 0 || starved;
    if (received.empty())
        return will_not_wait && !made_up.is_silent();
    return will_not_wait || made_up.is_silent() || !first_is_playable(received);
}

void adaptive_playout::skip_block(jitter_buffer& received) {
    media_end += static_cast<std::uint32_t>(block_samples - queue.size());
    queue.clear();
    event_samples = 0;
    pending.payload.clear();
    made_up.fall_silent();
    while (first_is_playable(received))
        received.take_first();
}

str adaptive_playout::next(jitter_buffer& received, codec& decoder, events& told) {
    fill(received, decoder, told, block_samples);
    adapt(received, decoder, told);
    str block;
    block.writable(pcm::block_bytes);
    std::memcpy(block.buffer(), queue.front(), pcm::block_bytes);
    queue.drop(block_samples);
    if (starved)
        fade_in(block);
    event_samples = std::max(event_samples - block_samples, 0);
    starved = false;
    return block;
}

/// Brings the queue to this length. What the packets don't give is made up, up to the time of the next one.
void adaptive_playout::fill(jitter_buffer& received, codec& decoder, events& told, int samples) {
    while (queue.size() < samples) {
        int const missing = samples - queue.size();
        if (!pending.payload.empty() || first_is_playable(received))
            take_more(received, decoder, told);
        else if (received.empty())
            conceal(decoder, missing);
        else
            conceal(decoder, std::min(missing, offset_of(received.get_first())));
    }
}

// ---- from packets to the queue

/// More of the packet that is played, else the first one that waits.
void adaptive_playout::take_more(jitter_buffer& received, codec& decoder, events& told) {
    if (pending.payload.empty())
        take(received, decoder, told);
    else
        decode_piece(decoder);
}

void adaptive_playout::take(jitter_buffer& received, codec& decoder, events& told) {
    jitter_buffer::departure const taken = received.take_first();
    jitter_buffer::packet const& packet = taken.played;
    told.taken = true;
    told.waiting_ms = samples_of(packet) / one_ms * taken.held;
    if (packet.codec == codec::telephone_event) {
        take_event(decoder, packet.payload);
        return;
    }
    if (in_event)
        made_up.fall_silent();
    in_event = false;
    if (fit(received, packet))
        pending.payload = packet.payload;
}

/// Decides how much of a packet whose time has come is played, and from when on. False: nothing of it.
bool adaptive_playout::fit(jitter_buffer const& received, jitter_buffer::packet const& packet) {
    int const late = -offset_of(packet);
    pending.codec = packet.codec;
    pending.skipped = 0;
    if (std::abs(late) > longest_jump) {
        jumped = true;
        media_end = packet.timestamp;
        return true;
    }
    if (late > 0 && late <= held_up)
        shortage = std::min(shortage + shortage_step, most_shortage);
    // With nothing behind it to go on with, or held up with what is, it is heard whole and makes the delay longer.
    if (late <= longest_lateness && (received.empty() || late > held_up)) {
        move_delay(late);
        media_end = packet.timestamp;
        return true;
    }
    pending.skipped = late;
    return late < samples_of(packet);
}

/// A tone of its own, which is neither stretched nor made up.
void adaptive_playout::take_event(codec& decoder, str const& payload) {
    str const tone = decoder.decode(codec::telephone_event, payload);
    int const n = tone.length() / pcm::sample_bytes;
    std::memcpy(queue.grow(n), tone.cbuffer(), static_cast<unsigned>(tone.length()));
    media_end += static_cast<std::uint32_t>(n);
    event_samples = queue.size();
    in_event = true;
    made_up.end();
}

void adaptive_playout::decode_piece(codec& decoder) {
    codec::unit const unit = codec::unit_of(pending.codec, pending.payload.length());
    int const unit_samples = unit.pcm_bytes / pcm::sample_bytes;
    int const taken = std::max(piece_samples / std::max(unit_samples, 1), 1) * unit.payload_bytes;
    str const piece = pending.payload.leftstr(taken);
    pending.payload = pending.payload.substr(taken);
    str const decoded = decoder.decode(pending.codec, piece);
    int const n = decoded.length() / pcm::sample_bytes;
    int const skipped = std::min(pending.skipped, n);
    pending.skipped -= skipped;
    if (n == skipped)
        return;
    std::memcpy(queue.grow(n - skipped), decoded.cbuffer() + skipped * pcm::sample_bytes,
                static_cast<unsigned>((n - skipped) * pcm::sample_bytes));
    media_end += static_cast<std::uint32_t>(n - skipped);
    if (made_up.is_active() || jumped)
        made_up.merge(queue, n - skipped);
    jumped = false;
}

void adaptive_playout::conceal(codec& decoder, int samples) {
    if (!made_up.is_silent()) {
        note_trouble();
        counted.concealed += samples;
    }
    if (in_event)
        made_up.fall_silent();
    str const own = made_up.is_active() ? str() : decoder.conceal(pending.codec);
    int const n = own.empty() ? samples : own.length() / pcm::sample_bytes;
    if (own.empty())
        made_up.extend(queue, n);
    else
        std::memcpy(queue.grow(n), own.cbuffer(), static_cast<unsigned>(own.length()));
    media_end += static_cast<std::uint32_t>(n);
}

// ---- towards the delay that is wanted

void adaptive_playout::adapt(jitter_buffer& received, codec& decoder, events& told) {
    constexpr int longest = speech_queue::longest_period;
    since_change += block_samples;
    int const surplus = get_delay() - wanted_delay();
    if (event_samples > 0 || made_up.is_silent())
        return;
    int changed = 0;
    if (surplus <= lowering.surplus && since_change >= lowering.pause) {
        changed = queue.stretch(lowering.likeness);
    } else {
        haste const* h = std::find_if(std::begin(hastes), std::end(hastes),
                                      [&](haste const& each) { return surplus >= each.surplus; });
        if (h == std::end(hastes))
            h = careful > 0 ? &at_rest : &at_rest_clean;
        if (surplus < h->surplus || since_change < h->pause)
            return;
        while (queue.size() < block_samples + 2 * longest && event_samples == 0 &&
               (!pending.payload.empty() || first_is_playable(received)))
            take_more(received, decoder, told);
        if (event_samples == 0)
            changed = -queue.cut(
                std::min(surplus < block_samples ? surplus : surplus + 5 * one_ms, queue.size() - block_samples),
                h->likeness);
    }
    move_delay(changed);
    (changed > 0 ? counted.stretched : counted.cut) += std::abs(changed);
    if (changed != 0)
        since_change = 0;
}
