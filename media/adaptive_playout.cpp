#include "media/adaptive_playout.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lib/pcm.h"
#include "media/tone_guard.h"

namespace {

using pcm::block_samples;

constexpr int one_ms = pcm::samples_per_ms;
constexpr int first_caution = 30000 * one_ms;  // doubled with each time that it turns out too short
constexpr int longest_caution = 60 * first_caution;
constexpr int longest_jump = 3000 * one_ms;     // of timestamps; beyond, the sender began anew
constexpr int longest_lateness = 300 * one_ms;  // chosen: speech that was held up longer is dropped, not caught up with
constexpr int held_up = 60 * one_ms;            // what comes later than this was held up with what follows it
// Lateness that the packets' delays don't explain (clocks that drift fast, packets that begin in the midst of a block):
// 2 ms more for each packet that comes too late in part, 0.8 ms less a second, in 1/16 tick.
constexpr int shortage_unit = 16;
constexpr int shortage_step = 2 * one_ms * shortage_unit;
constexpr int most_shortage = 20 * one_ms * shortage_unit;
constexpr int longest_by_coder = 120 * one_ms;      // GSM goes on for 320 ms, which are silent at last
constexpr int piece_samples = 40 * one_ms;          // decoded at a time
constexpr int longest_wait = 8 * one_ms;            // of the 10 until the line takes its block
constexpr int reserve = 5 * one_ms / 2;             // what is left of them, and a little
constexpr int no_capture = 100 * one_ms;            // without a block: the line gives none
constexpr std::uint32_t clock_step = 500 * one_ms;  // arrival times against the line: the system's clock was set
constexpr int far_back = 100, far_back_packets = 3, back_packets = 25;  // numbers that tell a restart from lateness

/// How fast the delay is brought down: the more there is too much, the sooner and the rougher.
struct haste {
    int surplus;  ///< ticks
    int pause;    ///< ticks between two changes
    speech_queue::likeness likeness;
};
constexpr haste hastes[] = {
    {200 * one_ms, 10 * one_ms, {0}},  {100 * one_ms, 20 * one_ms, {256}},  // correlation of 0.5
    {40 * one_ms, 20 * one_ms, {500}},                                      // 0.7
    {10 * one_ms, 60 * one_ms, {830}},                                      // 0.9
    {0, 200 * one_ms, {830}},                                               // to the last of what costs nothing
};
constexpr haste raising{-5 * one_ms / 2, 60 * one_ms, {830}};
constexpr int most_for_tones = 100 * one_ms;  // of delay too much; beyond, tones are cut like anything else
constexpr int tolerance = 5 * one_ms / 2;     // of what is left after lowering

int samples_of(jitter_buffer::packet const& packet) {
    codec::unit const unit = codec::unit_of(packet.codec, packet.payload.length());
    return packet.payload.length() / unit.payload_bytes * unit.pcm_bytes / pcm::sample_bytes;
}

/// Down to whole blocks.
int whole_blocks(int ticks) {
    return (ticks >= 0 ? ticks : ticks - block_samples + 1) / block_samples * block_samples;
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
        begin(entry);
    }
    jitter_buffer::arrival const arrival = received.store(sequence, entry);
    if (entry.codec != codec::telephone_event && entry.codec != codec::comfort_noise)
        measure(entry);
    if (static_cast<int>(entry.received.get_rtp_timestamp() - passed_at) > no_capture)
        is_captured = false;
    return arrival;
}

/// The first packet of a stream is heard after the delay that is wanted.
void adaptive_playout::begin(jitter_buffer::packet const& first) {
    forget_delays(first.received.get_rtp_timestamp() - first.timestamp);
    pending.payload.clear();
    int const left = until_taken(first.received.get_rtp_timestamp());
    int const waiting = std::max(whole_blocks(wanted_delay() - left + block_samples - 1), queue.size());
    media_end = first.timestamp - static_cast<std::uint32_t>(waiting - queue.size());
    jumped = !made_up.is_silent();
    late_in_row = 0;
}

void adaptive_playout::forget_delays(std::uint32_t transit) {
    delays.clear();
    reference = transit;
    packets_measured = 0;
}

/// Late packets are single; a sender that numbers anew goes on with the lower numbers.
bool adaptive_playout::restarts(jitter_buffer const& received, std::uint32_t sequence) {
    if (sequence > received.get_last_played()) {
        late_in_row = 0;
        return false;
    }
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
        if (first.codec == codec::telephone_event || first.codec == codec::comfort_noise || length == 0 ||
            std::abs(offset_of(first)) > held_up)
            return true;
        samples += length * received.get_held();
    }
    return samples >= block_samples || !pending.payload.empty();
}

/// Brings the delay up to date: how early the packet came for its own time, and how much later than the fastest one.
void adaptive_playout::measure(jitter_buffer::packet const& packet) {
    std::uint32_t const arrival = packet.received.get_rtp_timestamp(), transit = arrival - packet.timestamp;
    if ((arrival - measured_arrival) - (line_time - measured_at) + clock_step > 2 * clock_step)
        forget_delays(transit);
    measured_arrival = arrival;
    measured_at = line_time;
    int const ahead = queue.size() + offset_of(packet);
    int const whole = whole_blocks(ahead);
    int const delay = delays.add(packet.timestamp, arrival);
    if (waited && queued > 0 && ahead < queue.size() && ahead >= queue.size() - block_samples &&
        delay <= delays.get_usual() && surplus() >= 0)
        note_trouble();  // it would have come in time: that was decided too early
    note_position({until_taken(arrival) + whole + static_cast<int>(transit - reference), ahead - whole});
}

/// Ticks from a packet's arrival until the line takes the next block that is not given out.
int adaptive_playout::until_taken(std::uint32_t arrived) const {
    int const since = static_cast<int>(arrived - passed_at);
    bool const same_clock = std::abs(since) < no_capture;
    return (queued + 1) * block_samples - (same_clock ? std::clamp(since, 0, block_samples) : block_samples);
}

void adaptive_playout::note_position(position const& measured) {
    constexpr int period = 16;
    if (packets_measured % period == 0) {
        positions[1] = packets_measured == 0 ? measured : positions[0];
        positions[0] = measured;
    }
    packets_measured++;
    positions[0].slack = std::min(positions[0].slack, measured.slack);
    positions[0].spare = std::min(positions[0].spare, measured.spare);
}

void adaptive_playout::move_delay(int by) {
    for (position& p : positions) {
        int const whole = whole_blocks(p.spare + by);
        p.slack += whole;
        p.spare += by - whole;
    }
}

/// What the delay is too much, or, below 0, too little.
int adaptive_playout::surplus() const {
    int const slack = std::min(positions[0].slack, positions[1].slack);
    return slack + static_cast<int>(reference - delays.get_fastest()) - wanted_delay();
}

int adaptive_playout::spare() const {
    return std::min(positions[0].spare, positions[1].spare);
}

/// What it may be lowered by so that it is still enough.
int adaptive_playout::allowed_cut() const {
    int const over = surplus() - tolerance;
    return over < 0 ? 0 : whole_blocks(over) + spare();
}

/// What makes up for a delay that is too little, if there is a period of that length.
int adaptive_playout::wanted_stretch() const {
    int const missing = whole_blocks(block_samples - 1 - surplus()) - spare();
    return missing < 2 * speech_queue::shortest_period ? speech_queue::longest_period : missing;
}

int adaptive_playout::wanted_delay() const {
    return delays.get_usual() + shortage / shortage_unit + (careful > 0 ? block_samples : reserve);
}

void adaptive_playout::note_trouble() {
    if (careful == 0)
        caution = std::min(2 * caution, longest_caution);
    careful = caution;
}

// ---- the line's time

void adaptive_playout::pass_block(std::uint32_t now) {
    is_captured = true;
    passed_at = now;
    pass();
}

int adaptive_playout::settle(jitter_buffer const& received, std::uint32_t now) {
    if (!is_captured) {
        int const since = static_cast<int>(now - passed_at);
        if (since < 0 || since >= block_samples) {
            passed_at = since >= 0 && since < no_capture ? passed_at + block_samples : now;
            pass();
        }
    }
    int const since = static_cast<int>(now - passed_at);
    if (!is_waiting(received))
        return is_captured || (made_up.is_silent() && received.empty()) ? -1 : std::max(block_samples - since, 0);
    if (since >= 0 && since < longest_wait)
        return longest_wait - since;
    waited = true;
    return -1;
}

void adaptive_playout::pass() {
    line_time += block_samples;
    careful = std::max(careful - block_samples, 0);
    shortage = std::max(shortage - 1, 0);
    waited = false;
    if (queued > 0) {
        queued--;
    } else if (made_up.is_silent()) {
        media_end += block_samples;
    } else {
        starved = true;
        move_delay(block_samples);
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
    bool const will_not_wait = careful > 0 || starved || waited;
    if (received.empty())
        return will_not_wait && !made_up.is_silent();
    return will_not_wait || made_up.is_silent() || !first_is_playable(received);
}

bool adaptive_playout::is_waiting(jitter_buffer const& received) const {
    return queued == 0 && !made_up.is_silent() && !due(received);
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
            conceal(received, decoder, missing);
        else
            conceal(received, decoder, std::min(missing, offset_of(received.get_first())));
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
        made_up.fall_quiet();
    in_event = false;
    if (packet.codec == codec::comfort_noise)
        take_pause(packet);
    else if (fit(received, packet))
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
    if (late > 0 && late <= held_up && surplus() > 2 * raising.surplus)
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

/// The noise of a pause, until speech comes.
void adaptive_playout::take_pause(jitter_buffer::packet const& packet) {
    if (std::abs(offset_of(packet)) > longest_jump)
        media_end = packet.timestamp;
    made_up.pause(noise_shape::of_payload(packet.payload));
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
    by_coder = 0;
    if (made_up.is_active() || jumped)
        made_up.merge(queue, n - skipped);
    jumped = false;
    for (int at = block_samples; at <= n - skipped; at += block_samples)
        made_up.hear(queue.back() - at);
}

void adaptive_playout::conceal(jitter_buffer const& received, codec& decoder, int samples) {
    if (!made_up.has_faded() && !made_up.is_pausing())
        counted.concealed += samples;
    if (in_event && !made_up.is_active())
        made_up.fall_quiet();
    if (made_up.has_faded() && !made_up.is_silent() && received.empty())
        use_pause();
    bool const by_waveform = made_up.is_active() || made_up.is_pausing() || by_coder >= longest_by_coder;
    str const own = by_waveform ? str() : decoder.conceal(pending.codec);
    by_coder += own.length() / pcm::sample_bytes;
    int const n = own.empty() ? samples : own.length() / pcm::sample_bytes;
    if (own.empty())
        made_up.extend(queue, n);
    else
        std::memcpy(queue.grow(n), own.cbuffer(), static_cast<unsigned>(own.length()));
    media_end += static_cast<std::uint32_t>(n);
}

// ---- towards the delay that is wanted

/// Noise may be any length.
void adaptive_playout::use_pause() {
    int const by = surplus() <= raising.surplus ? wanted_stretch() : -allowed_cut();
    media_end -= static_cast<std::uint32_t>(by);
    move_delay(by);
}

void adaptive_playout::adapt(jitter_buffer& received, codec& decoder, events& told) {
    since_change += block_samples;
    if (event_samples > 0 || made_up.is_silent())
        return;
    int changed = 0;
    if (surplus() > raising.surplus)
        changed = -lower(received, decoder, told);
    else if (since_change >= raising.pause && !in_tones())
        changed = queue.stretch(wanted_stretch(), raising.likeness);
    if (changed == 0)
        return;
    move_delay(changed);
    (changed > 0 ? counted.stretched : counted.cut) += std::abs(changed);
    since_change = 0;
}

/// Leaves out what is too much, as far as it is time to. Returns the samples.
int adaptive_playout::lower(jitter_buffer& received, codec& decoder, events& told) {
    int const over = surplus(), most = allowed_cut();
    haste const& h = *std::find_if(std::begin(hastes), std::end(hastes) - 1,
                                   [&](haste const& each) { return over >= each.surplus; });
    if (most < speech_queue::shortest_period || since_change < h.pause)
        return 0;
    while (queue.size() < block_samples + 2 * speech_queue::longest_period && event_samples == 0 &&
           (!pending.payload.empty() || first_is_playable(received)))
        take_more(received, decoder, told);
    if (event_samples > 0 || (over < most_for_tones && in_tones()))
        return 0;
    return queue.cut(std::min(most, queue.size() - block_samples), h.likeness);
}

/// Whether what a change would touch is a digit or a call-progress tone.
bool adaptive_playout::in_tones() const {
    constexpr int longest = speech_queue::longest_period;
    return holds_tones(queue.front() - longest, longest + std::min(queue.size(), 2 * longest));
}
