#include "media/channel.h"
#include "media/notifications.h"

namespace {

constexpr int block_bytes = 160;  // 10 ms
constexpr int pcm_bytes_per_ms = 16;
constexpr int in_order_to_shrink = 128;  // in-sequence play-outs that lower the depth by one
constexpr int shallowest = 1;            // packets

}  // namespace

bool channel::output_available() const {
    if (!rx_pcm.empty() || !playback.empty() || !tone.empty())
        return true;
    if (jitter_buffer.empty())
        return false;
    return jitter_buffer.size() >= jb_depth || in_sequence(jitter_buffer.begin()->first);
}

str channel::get_samples() {
    if (rx_pcm.empty())
        play_announcement();
    if (rx_pcm.empty())
        play_packet();
    if (rx_pcm.empty() && !tone.empty())
        rx_pcm = tone.get_10ms();
    if (rx_pcm.length() < block_bytes)
        rx_pcm = str('\0', block_bytes);
    str const block = rx_pcm.leftstr(block_bytes);
    rx_pcm = rx_pcm.substr(block_bytes);
    return block;
}

void channel::play_announcement() {
    if (playback.empty())
        return;
    rx_pcm = playback.leftstr(block_bytes);
    playback = playback.substr(block_bytes);
    if (rx_pcm.length() < block_bytes)
        rx_pcm += str('\0', block_bytes - rx_pcm.length());
    if (playback.empty())
        notify::playback_empty(id);
}

/// Decodes the oldest packet when it is the next one in sequence, or when so many wait behind a gap that it won't
/// close any more. The wanted depth follows: down after a long run in sequence, up after a gap.
void channel::play_packet() {
    if (jitter_buffer.empty())
        return;
    smap<int, packet>::iterator const head = jitter_buffer.begin();
    bool const in_order = in_sequence(head->first);
    if (!in_order && jitter_buffer.size() < jb_depth)
        return;
    last_played_seq = static_cast<std::uint32_t>(head->first);
    rx_pcm = codec_state.decode(head->second.codec, head->second.payload);
    if (head->second.first)
        tx_clear();
    xr.monitor_jitter_buffer_size(rx_pcm.length() / pcm_bytes_per_ms * jitter_buffer.size());
    jitter_buffer.erase(head);
    if (!in_order) {
        raise_jitter_depth();
    } else if (++jb_in_order == in_order_to_shrink) {
        jb_in_order = 0;
        if (jb_depth > shallowest)
            jb_depth--;
    }
}
