#include "media/jitter_buffer.h"

#include <utility>

namespace {

constexpr int shallowest = 1;             // packets
constexpr int deepest = 16;               // packets
constexpr int in_sequence_to_sink = 128;  // packets played in sequence that lower the depth by one
constexpr int most_packets = 400;
constexpr int most_payload_bytes = 128 * 1024;  // chosen: above 400 packets of 20 ms of linear PCM

/// A payload that keeps a much larger block alive (a datagram of mostly header) goes on in a block of its own.
void compact(str& payload) {
    constexpr int tolerated_bytes = 1024;
    if (payload.get_block_bytes() > 2 * payload.length() + tolerated_bytes)
        payload = str(payload.cbuffer(), payload.length());
}

}  // namespace

jitter_buffer::arrival jitter_buffer::put(std::uint32_t sequence, bool marker, packet const& entry) {
    if (marker)
        start_over();
    bool const begins = !playing && sequence != 0;
    if (begins)
        play_from(sequence);
    if (sequence <= last_played) {
        deepen();
        return {.late = true};
    }
    return {.thrown_away = insert(sequence, entry, marker || begins)};
}

jitter_buffer::arrival jitter_buffer::store(std::uint32_t sequence, packet const& entry) {
    if (sequence <= last_played)
        return {.late = true};
    return {.thrown_away = insert(sequence, entry, entry.first)};
}

/// Returns whether what was held had to be thrown away.
bool jitter_buffer::insert(std::uint32_t sequence, packet const& entry, bool first) {
    int const key = static_cast<int>(sequence);
    bool const duplicate = packets.find(key) != packets.end();
    bool const outgrown = has_outgrown(entry.received);
    if (outgrown)
        start_over();
    if (!duplicate) {
        packet& kept = packets.insert(key, entry)->second;
        kept.first = first;
        compact(kept.payload);
        payload_bytes += kept.payload.length();
        playing = true;
    }
    return outgrown;
}

jitter_buffer::departure jitter_buffer::take() {
    bool const next = is_next(packets.begin()->first);
    departure taken = take_first();
    if (next)
        count_in_sequence();
    else
        deepen();
    return taken;
}

jitter_buffer::departure jitter_buffer::take_first() {
    smap<int, packet>::iterator const head = packets.begin();
    departure taken{std::move(head->second), packets.size()};
    last_played = static_cast<std::uint32_t>(head->first);
    packets.erase(head);
    payload_bytes -= taken.played.payload.length();
    return taken;
}

void jitter_buffer::clear() {
    packets.clear();
    payload_bytes = 0;
}

void jitter_buffer::stop() {
    clear();
    playing = false;
}

void jitter_buffer::play_from(std::uint32_t sequence) {
    last_played = sequence - 1;
    playing = true;
}

void jitter_buffer::start_over() {
    stop();
    in_sequence = 0;
    depth = shallowest;
}

void jitter_buffer::deepen() {
    in_sequence = 0;
    if (depth < deepest)
        depth++;
}

void jitter_buffer::count_in_sequence() {
    if (++in_sequence < in_sequence_to_sink)
        return;
    in_sequence = 0;
    if (depth > shallowest)
        depth--;
}

bool jitter_buffer::has_outgrown(rtimestamp const& now) const {
    if (packets.empty())
        return false;
    return packets.size() > most_packets || payload_bytes > most_payload_bytes ||
           now.diff_ms(packets.begin()->second.received) > oldest_ms;
}
