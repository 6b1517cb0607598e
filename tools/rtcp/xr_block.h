#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/protocol/bytes.h"

/// The blocks of an extended report as values (RFC 3611 section 4) and their parser.
namespace rtcp_view {

struct ntp_time {
    std::uint32_t seconds = 0;                                               ///< since 1900
    std::uint32_t fraction = 0;                                              ///< 1/2^32 s
    std::uint32_t middle() const { return seconds << 16 | fraction >> 16; }  ///< as in LSR and LRR
};

struct opaque {
    protocol::bytes data;
};

/// Sequence numbers begin to end - 1, of which every 2^thinning-th is reported.
struct sequence_range {
    std::uint32_t ssrc = 0;
    std::uint8_t thinning = 0;
    std::uint16_t begin = 0;
    std::uint16_t end = 0;
};

/// Blocks 1 (one bit for each packet: received) and 2 (received more than once).
struct run_lengths {
    bool duplicates = false;
    sequence_range range;
    std::vector<std::uint16_t> chunks;  ///< RFC 3611 section 4.1.1, without terminating nulls
};

/// Block 3. The RFC has one group; fxsmedia writes one for each run of packets without a gap.
struct receipt_times {
    struct group {
        std::uint16_t begin = 0;
        std::uint16_t end = 0;
        std::vector<std::uint32_t> times;  ///< RTP timestamp units
    };
    std::uint32_t ssrc = 0;
    std::uint8_t thinning = 0;
    std::vector<group> groups;
};

/// Block 4.
struct reference_time {
    ntp_time sent;
};

/// Block 5.
struct reference_answers {
    struct answer {
        std::uint32_t ssrc = 0;
        std::uint32_t last_rr = 0;
        std::uint32_t delay = 0;  ///< 1/65536 s
    };
    std::vector<answer> answers;
};

/// Block 6.
struct statistics_summary {
    static constexpr std::uint8_t has_ttl = 0x18;  ///< flag, beside those of lib/rtcp_numbers.h
    std::uint8_t flags = 0;                        ///< which of the values mean something
    sequence_range range;
    std::uint32_t lost = 0;
    std::uint32_t duplicates = 0;
    std::uint32_t jitter[4] = {};  ///< minimum, maximum, mean, deviation; RTP timestamp units
    std::uint8_t ttl[4] = {};      ///< the same
};

/// Block 7.
struct voip_metrics {
    std::uint32_t ssrc = 0;
    std::uint8_t loss_rate = 0;  ///< 1/256, as the next three
    std::uint8_t discard_rate = 0;
    std::uint8_t burst_density = 0;
    std::uint8_t gap_density = 0;
    std::uint16_t burst_ms = 0;
    std::uint16_t gap_ms = 0;
    std::uint16_t round_trip_ms = 0;
    std::uint16_t end_system_delay_ms = 0;
    std::uint8_t levels[3] = {};  ///< signal and noise (signed dBm), RERL (dB); 127: not measured
    std::uint8_t gmin = 0;
    std::uint8_t scores[4] = {};      ///< R factor, external R factor, MOS-LQ, MOS-CQ (1/10); 127: not measured
    std::uint16_t configuration = 0;  ///< receiver configuration and reserved byte
    std::uint16_t jb_nominal_ms = 0;
    std::uint16_t jb_maximum = 0;  ///< as on the wire
    std::uint16_t jb_absolute_ms = 0;

    /// fxsmedia repeats the round trip in place of the configuration, gives no absolute maximum, and writes the
    /// maximum with its low byte first.
    bool by_fxsmedia() const { return configuration == round_trip_ms && jb_absolute_ms == 0xFFFF; }
    std::uint16_t jb_maximum_ms() const {
        return by_fxsmedia() ? static_cast<std::uint16_t>(jb_maximum << 8 | jb_maximum >> 8) : jb_maximum;
    }
};

struct xr_block {
    std::uint8_t type = 0;
    std::uint8_t specific = 0;
    std::variant<opaque, run_lengths, receipt_times, reference_time, reference_answers, statistics_summary,
                 voip_metrics>
        content;
    std::string problem;     ///< what is wrong with it; empty: nothing
    protocol::bytes unread;  ///< bytes behind what was understood
};

/// The blocks behind the SSRC of an extended report. What is left over comes as a last block of type 0.
std::vector<xr_block> parse_xr_blocks(protocol::byte_view data);

}  // namespace rtcp_view
