#include "media/playout.h"

#include <algorithm>
#include <utility>

#include "lib/pcm.h"

namespace {

constexpr int piece_pcm_bytes = 40 * pcm::bytes_per_ms;      // chosen: a packet of the usual lengths is one piece
constexpr int longest_pcm_bytes = 3000 * pcm::bytes_per_ms;  // as old as a packet may grow in the jitter buffer
constexpr int longest_announcements_bytes = 30000 * pcm::bytes_per_ms;  // chosen: beyond any announcement

}  // namespace

playout::playout(extension_set const& chosen) {
    if (chosen.playout)
        adaptive = std::make_unique<adaptive_playout>();
}

jitter_buffer::arrival playout::put(jitter_buffer& received, std::uint32_t sequence, bool marker,
                                    jitter_buffer::packet const& entry) {
    jitter_buffer::arrival const arrival =
        adaptive ? adaptive->put(received, sequence, entry) : received.put(sequence, marker, entry);
    late += arrival.late;
    return arrival;
}

playout::totals playout::get_totals() const {
    return {adaptive ? adaptive->get_totals() : adaptive_playout::totals{}, late};
}

int playout::settle(jitter_buffer const& received, std::uint32_t now) {
    int const left = adaptive->settle(received, now);
    return left < 0 ? -1 : (left + pcm::samples_per_ms - 1) / pcm::samples_per_ms;
}

bool playout::available_adaptive(jitter_buffer const& received) const {
    return adaptive->has_room() && (!announcement.empty() || !tone.empty() || adaptive->due(received));
}

void playout::add_announcement(str const& samples) {
    announcement += samples.leftstr(longest_announcements_bytes - announcement.length());
}

str playout::next(jitter_buffer& received, codec& decoder, events& told) {
    if (adaptive)
        return next_adaptive(received, decoder, told);
    if (decoded.empty() && !pending.payload.empty())
        decode_piece(decoder);
    if (decoded.empty())
        take_announcement(told);
    if (decoded.empty())
        take_packet(received, decoder, told);
    if (decoded.empty() && !tone.empty())
        decoded = tone.get_10ms();
    return take_block();
}

/// What is played instead of the stream takes its time.
str playout::next_adaptive(jitter_buffer& received, codec& decoder, events& told) {
    take_announcement(told);
    if (decoded.empty() && !tone.empty() && (!adaptive->due(received) || adaptive->only_noise(received)))
        decoded = tone.get_10ms();
    if (decoded.empty()) {
        adaptive_playout::events got;
        decoded = adaptive->next(received, decoder, got);
        if (got.taken)
            told.buffered_ms = got.waiting_ms;
    } else {
        adaptive->skip_block(received);
    }
    adaptive->count_block();
    return take_block();
}

str playout::take_block() {
    if (decoded.length() == pcm::block_bytes)
        return std::move(decoded);
    if (decoded.length() < pcm::block_bytes)
        decoded = str('\0', pcm::block_bytes);
    str block = decoded.leftstr(pcm::block_bytes);
    decoded.drop_front(pcm::block_bytes);
    return block;
}

void playout::take_announcement(events& told) {
    if (announcement.empty())
        return;
    decoded = announcement.leftstr(pcm::block_bytes);
    announcement.drop_front(pcm::block_bytes);
    if (decoded.length() < pcm::block_bytes)
        decoded += str('\0', pcm::block_bytes - decoded.length());
    told.announcement_ended = announcement.empty();
}

void playout::take_packet(jitter_buffer& received, codec& decoder, events& told) {
    if (!received.due())
        return;
    jitter_buffer::departure const taken = received.take();
    jitter_buffer::packet const& packet = taken.played;
    int pcm_bytes = begin_long_packet(packet);
    if (pcm_bytes > 0) {
        decode_piece(decoder);
    } else {
        decoded = decoder.decode(packet.codec, packet.payload);
        pcm_bytes = decoded.length();
    }
    told.starts_talk_spurt = packet.first;
    told.buffered_ms = pcm_bytes / pcm::bytes_per_ms * taken.held;
}

/// Bytes of PCM of a packet that is to be decoded in pieces; 0: it is short.
int playout::begin_long_packet(jitter_buffer::packet const& packet) {
    codec::unit const unit = codec::unit_of(packet.codec, packet.payload.length());
    int const units = packet.payload.length() / unit.payload_bytes;
    if (units * unit.pcm_bytes <= piece_pcm_bytes || packet.codec == codec::telephone_event)
        return 0;
    int const played = std::min(units, longest_pcm_bytes / unit.pcm_bytes);
    pending = {packet.codec, piece_pcm_bytes / unit.pcm_bytes * unit.payload_bytes,
               packet.payload.leftstr(played * unit.payload_bytes)};
    return units * unit.pcm_bytes;
}

void playout::decode_piece(codec& decoder) {
    decoded = decoder.decode(pending.codec, pending.payload.leftstr(pending.piece_bytes));
    pending.payload.drop_front(pending.piece_bytes);
}
