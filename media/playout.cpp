#include "media/playout.h"

#include "lib/pcm.h"

bool playout::available(jitter_buffer const& received) const {
    return !decoded.empty() || !announcement.empty() || !tone.empty() || received.due();
}

playout::block playout::next(jitter_buffer& received, codec& decoder) {
    block out;
    if (decoded.empty())
        take_announcement(out);
    if (decoded.empty())
        take_packet(received, decoder, out);
    if (decoded.empty() && !tone.empty())
        decoded = tone.get_10ms();
    if (decoded.length() < pcm::block_bytes)
        decoded = str('\0', pcm::block_bytes);
    out.pcm = decoded.leftstr(pcm::block_bytes);
    decoded = decoded.substr(pcm::block_bytes);
    return out;
}

void playout::take_announcement(block& out) {
    if (announcement.empty())
        return;
    decoded = announcement.leftstr(pcm::block_bytes);
    announcement = announcement.substr(pcm::block_bytes);
    if (decoded.length() < pcm::block_bytes)
        decoded += str('\0', pcm::block_bytes - decoded.length());
    out.announcement_ended = announcement.empty();
}

void playout::take_packet(jitter_buffer& received, codec& decoder, block& out) {
    if (!received.due())
        return;
    jitter_buffer::departure const taken = received.take();
    decoded = decoder.decode(taken.played.codec, taken.played.payload);
    out.starts_talk_spurt = taken.played.first;
    out.buffered_ms = decoded.length() / pcm::bytes_per_ms * taken.held;
}
