#pragma once

#include <cstdint>

#include "lib/rtimestamp.h"
#include "lib/smap.h"
#include "lib/str.h"

/// The packets of one received stream between arrival and play-out, in the order of their extended sequence numbers.
///
/// The oldest packet is due when it is the next one in sequence, or when as many packets as the depth says wait
/// behind a gap that won't close any more. The depth moves between 1 and 16 packets: one up for each late packet and
/// each gap played over, one down after 128 packets in sequence, back to 1 with each talk spurt and each time that the
/// buffer is thrown away.
///
/// Knows no socket, no log, no call control and no coder, and reads no clock: times come with the packets, what
/// happened comes back as a value. Sequence numbers are 32 bits and compared unsigned; the order of the held ones is
/// that of signed integers. A channel owns one.
class jitter_buffer {
public:
    static constexpr int oldest_ms = 3000;  ///< a packet that waits longer is thrown away with all others

    /// One entry.
    struct packet {
        int codec = 0;        ///< codec number
        rtimestamp received;  ///< when it arrived
        bool first = false;   ///< starts a talk spurt; set by put()
        str payload;
        std::uint32_t timestamp = 0;  ///< of the RTP header
    };
    /// What became of a packet that was put.
    struct arrival {
        bool late = false;         ///< its turn was over: it is not kept
        bool thrown_away = false;  ///< what was held had grown too old or too long
    };
    /// A packet taken for play-out.
    struct departure {
        packet played;
        int held = 0;  ///< packets held, this one included
    };

    /// Takes a packet in. One with the marker, and the first one after play-out stopped, starts a talk spurt. Of
    /// packets of one number the first stays. Before it stores, it throws away what it holds when that is more than
    /// 400 packets or 128 KiB of payload, or when the oldest arrived more than 3 s before `entry`.
    arrival put(std::uint32_t sequence, bool marker, packet const& entry);
    /// Whether a packet is due.
    bool due() const { return !packets.empty() && (packets.size() >= depth || is_next(packets.begin()->first)); }
    /// Takes the packet that is due. Only while due() is true.
    departure take();

    // ---- for a strategy that has its own idea of when a packet is due (adaptive_playout)
    /// put() without talk spurts and depth. When it throws away what it holds, play-out goes on from where it is.
    arrival store(std::uint32_t sequence, packet const& entry);
    bool empty() const { return packets.empty(); }
    int get_held() const { return packets.size(); }
    /// The oldest one. Not while empty().
    packet const& get_first() const { return packets.begin()->second; }
    /// Takes the oldest one; those that are missing before it are late from now on. Not while empty().
    departure take_first();

    /// Drops what is held; play-out goes on from where it is.
    void clear();
    /// Another stream follows: drops what is held, play-out begins with the next packet.
    void stop();
    /// The packet of this number is the next one to be played.
    void play_from(std::uint32_t sequence);

    /// The number that was played last, near which new ones are extended.
    std::uint32_t get_last_played() const { return last_played; }
    /// Whether there is a play-out point: false until a packet came, and after stop().
    bool is_playing() const { return playing; }

private:
    static constexpr std::uint32_t first_last_played = 32768;  // chosen: no wrap near the first packet

    void start_over();
    bool insert(std::uint32_t sequence, packet const& entry, bool first);
    void deepen();
    void count_in_sequence();
    bool is_next(int key) const { return static_cast<std::uint32_t>(key) == last_played + 1; }
    bool has_outgrown(rtimestamp const& now) const;

    smap<int, packet> packets;
    int payload_bytes = 0;  ///< of all of them
    int depth = 1;          ///< packets that must wait before a gap is played over, 1..16
    int in_sequence = 0;    ///< packets played in sequence since the depth changed, 0..127
    std::uint32_t last_played = first_last_played;
    bool playing = false;
};
