#include "media/adaptive_playout.h"

#include <algorithm>
#include <cstdlib>

#include "lib/pcm.h"

namespace {

using pcm::block_samples;

constexpr int one_ms = pcm::samples_per_ms;
constexpr int longest_lateness = 300 * one_ms;  // chosen: speech that was held up longer is dropped, not caught up with
constexpr int held_up = 60 * one_ms;            // what comes later than this was held up with what follows it
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
constexpr int pause_of_raising = 60 * one_ms;
constexpr speech_queue::likeness likeness_of_raising{830};
constexpr int most_for_tones = 100 * one_ms;  // of delay too much; beyond, tones are cut like anything else

int samples_of(jitter_buffer::packet const& packet) {
    return decoded_stream::samples_of(packet.codec, packet.payload);
}

}  // namespace

// ---- packets

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
    line.see(entry.received.get_rtp_timestamp());
    return arrival;
}

/// The first packet of a stream is heard after the delay that is wanted, in whole blocks.
void adaptive_playout::begin(jitter_buffer::packet const& first) {
    std::uint32_t const arrived = first.received.get_rtp_timestamp();
    delay.restart(arrived - first.timestamp);
    int const missing = std::max(delay.wanted() - line.until_taken(arrived), 0);
    int const blocks = (missing + block_samples - 1) / block_samples;
    stream.restart_at(first.timestamp -
                      static_cast<std::uint32_t>(std::max(blocks * block_samples - stream.size(), 0)));
    late_in_row = 0;
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

void adaptive_playout::measure(jitter_buffer::packet const& packet) {
    std::uint32_t const arrived = packet.received.get_rtp_timestamp();
    int const offset = stream.offset_of(packet.timestamp);
    delay.add({.timestamp = packet.timestamp,
               .at = arrived,
               .until_taken = line.until_taken(arrived),
               .ahead = stream.size() + offset,
               .missed = line.has_waited() && !line.is_empty() && offset < 0 && offset >= -block_samples});
}

bool adaptive_playout::first_is_playable(jitter_buffer const& received) const {
    if (received.empty())
        return false;
    int const offset = stream.offset_of(received.get_first().timestamp);
    return offset <= 0 || offset > decoded_stream::longest_jump;
}

/// Whether the packets give 10 ms; those behind the first one are taken for as long as it.
bool adaptive_playout::has_block(jitter_buffer const& received) const {
    int samples = stream.size();
    if (first_is_playable(received)) {
        jitter_buffer::packet const& first = received.get_first();
        int const length = samples_of(first);
        if (first.codec == codec::telephone_event || first.codec == codec::comfort_noise || length == 0 ||
            std::abs(stream.offset_of(first.timestamp)) > held_up)
            return true;
        samples += length * received.get_held();
    }
    return samples >= block_samples || stream.has_more();
}

bool adaptive_playout::can_take_more(jitter_buffer const& received) const {
    return stream.has_more() || first_is_playable(received);
}

// ---- the line's time

int adaptive_playout::settle(jitter_buffer const& received, std::uint32_t now) {
    if (line.is_block_over(now))
        note_passed(line.pass_untold_block(now));
    if (is_waiting(received))
        return line.wait(now);
    return line.tells() || (stream.is_silent() && received.empty()) ? -1 : line.until_block_over(now);
}

void adaptive_playout::note_passed(bool had_block) {
    delay.pass_block();
    if (had_block)
        return;
    if (stream.is_silent()) {
        stream.leave_out(block_samples);
    } else {
        starved = true;
        delay.move(block_samples);
        delay.note_trouble();
    }
}

bool adaptive_playout::due(jitter_buffer const& received) const {
    if (!has_room())
        return false;
    if (has_block(received))
        return true;
    if (!line.is_empty())
        return false;
    bool const will_not_wait = delay.is_careful() || starved || line.has_waited();
    if (received.empty())
        return will_not_wait && !stream.is_silent();
    return will_not_wait || stream.is_silent() || !first_is_playable(received);
}

bool adaptive_playout::is_waiting(jitter_buffer const& received) const {
    return line.is_empty() && !stream.is_silent() && !due(received);
}

void adaptive_playout::skip_block(jitter_buffer& received) {
    stream.skip_block();
    while (first_is_playable(received))
        received.take_first();
}

str adaptive_playout::next(jitter_buffer& received, codec& decoder, events& told) {
    fill(received, decoder, told);
    adapt(received, decoder, told);
    bool const after_silence = starved;
    starved = false;
    return stream.take_block(after_silence);
}

/// Brings the stream to a block. What the packets don't give is made up, up to the time of the next one.
void adaptive_playout::fill(jitter_buffer& received, codec& decoder, events& told) {
    while (stream.size() < block_samples) {
        if (can_take_more(received)) {
            take_more(received, decoder, told);
            continue;
        }
        int missing = block_samples - stream.size();
        if (!received.empty())
            missing = std::min(missing, stream.offset_of(received.get_first().timestamp));
        else if (stream.ends_in_noise())
            use_noise();
        stream.conceal(decoder, missing);
    }
}

// ---- from packets to the stream

/// More of the packet that is played, else the first one that waits.
void adaptive_playout::take_more(jitter_buffer& received, codec& decoder, events& told) {
    if (stream.has_more())
        stream.decode_piece(decoder);
    else
        take(received, decoder, told);
}

void adaptive_playout::take(jitter_buffer& received, codec& decoder, events& told) {
    jitter_buffer::departure const taken = received.take_first();
    jitter_buffer::packet const& packet = taken.played;
    told.taken = true;
    told.waiting_ms = samples_of(packet) / one_ms * taken.held;
    if (packet.codec == codec::telephone_event) {
        stream.add_event(decoder, packet.payload);
        return;
    }
    stream.end_event();
    if (packet.codec != codec::comfort_noise) {
        take_speech(received, packet);
        return;
    }
    if (std::abs(stream.offset_of(packet.timestamp)) > decoded_stream::longest_jump)
        stream.continue_at(packet.timestamp);
    stream.pause(noise_shape::of_payload(packet.payload));
}

/// Decides how much of a packet whose time has come is played, and from when on.
void adaptive_playout::take_speech(jitter_buffer const& received, jitter_buffer::packet const& packet) {
    int late = -stream.offset_of(packet.timestamp);
    if (late > 0 && late <= held_up)
        delay.note_late_part();
    if (std::abs(late) > decoded_stream::longest_jump) {
        stream.jump_to(packet.timestamp);
        late = 0;
    } else if (late <= longest_lateness && (received.empty() || late > held_up)) {
        // With nothing behind it to go on with, or held up with what is, it is heard whole and makes the delay longer.
        delay.move(late);
        stream.continue_at(packet.timestamp);
        late = 0;
    }
    stream.begin(packet.codec, packet.payload, late);
}

// ---- towards the delay that is wanted

/// Noise may be any length.
void adaptive_playout::use_noise() {
    int const by = delay.is_short() ? delay.wanted_stretch() : -delay.allowed_cut();
    stream.leave_out(-by);
    delay.move(by);
}

void adaptive_playout::adapt(jitter_buffer& received, codec& decoder, events& told) {
    since_change += block_samples;
    if (stream.holds_event() || stream.is_silent())
        return;
    int changed = 0;
    if (!delay.is_short())
        changed = -lower(received, decoder, told);
    else if (since_change >= pause_of_raising && !stream.holds_tones())
        changed = stream.stretch(delay.wanted_stretch(), likeness_of_raising);
    if (changed == 0)
        return;
    delay.move(changed);
    (changed > 0 ? stretched : cut) += std::abs(changed);
    since_change = 0;
}

/// Leaves out what is too much, as far as it is time to. Returns the samples.
int adaptive_playout::lower(jitter_buffer& received, codec& decoder, events& told) {
    int const over = delay.surplus(), most = delay.allowed_cut();
    haste const& h = *std::find_if(std::begin(hastes), std::end(hastes) - 1,
                                   [&](haste const& each) { return over >= each.surplus; });
    if (most < speech_queue::shortest_period || since_change < h.pause)
        return 0;
    while (stream.size() < block_samples + 2 * speech_queue::longest_period && !stream.holds_event() &&
           can_take_more(received))
        take_more(received, decoder, told);
    if (stream.holds_event() || (over < most_for_tones && stream.holds_tones()))
        return 0;
    return stream.cut(most, h.likeness);
}
