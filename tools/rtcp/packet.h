// RTCP packets as values (RFC 3550 section 6). Filled by parse.h, shown by show.h; they hold what was on the wire and
// judge nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/protocol/hex.h"
#include "tools/rtcp/xr_block.h"

namespace rtcp_view {

struct report_block {  // RFC 3550 section 6.4.1
    std::uint32_t ssrc = 0;
    std::uint8_t fraction_lost = 0;      // 1/256
    std::int32_t lost = 0;               // 24 bits, signed
    std::uint32_t highest_sequence = 0;  // extended
    std::uint32_t jitter = 0;            // RTP timestamp units
    std::uint32_t last_sr = 0;           // middle of the NTP time of the report answered, 0: none
    std::uint32_t delay = 0;             // since then, 1/65536 s
};

struct sender_info {
    ntp_time sent;
    std::uint32_t rtp_timestamp = 0;
    std::uint32_t packets = 0;
    std::uint32_t octets = 0;
};

struct answered_report {
    std::uint32_t last_sr = 0;
    std::uint32_t delay = 0;  // 1/65536 s
};

// Sender or receiver report. `announced` is the count of the header; blocks that are not there are not in `blocks`.
struct report {
    std::uint32_t ssrc = 0;
    std::optional<sender_info> sender;  // absent in a receiver report
    unsigned announced = 0;
    std::vector<report_block> blocks;
    // fxsmedia announces one block before it knows its peer, but sends only the end of it.
    std::optional<answered_report> blockless;
    protocol::bytes extension;  // profile-specific
};

struct sdes_item {
    std::uint8_t type = 0;  // 1 CNAME ... 8 PRIV
    std::string text;
};

struct sdes_chunk {
    std::uint32_t ssrc = 0;
    std::vector<sdes_item> items;
};

struct source_description {
    std::vector<sdes_chunk> chunks;
};

struct bye {
    std::vector<std::uint32_t> sources;
    std::optional<std::string> reason;
};

struct application {
    std::uint8_t subtype = 0;
    std::uint32_t ssrc = 0;
    std::string name;  // 4 bytes
    protocol::bytes data;
};

struct extended_report {  // RFC 3611 section 2
    std::uint32_t ssrc = 0;
    std::vector<xr_block> blocks;
};

struct packet {
    std::uint8_t type = 0;  // 200 SR ... 207 XR
    std::variant<opaque, report, source_description, bye, application, extended_report> body;
    std::string problem;     // what is wrong with it; empty: nothing
    protocol::bytes unread;  // bytes behind what was understood
};

// "SR", "XR", ...; the number for types without a name.
std::string type_name(std::uint8_t type);

}  // namespace rtcp_view
