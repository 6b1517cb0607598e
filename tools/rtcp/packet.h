#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/protocol/bytes.h"
#include "tools/rtcp/xr_block.h"

/// RTCP packets as values (RFC 3550 section 6), exactly as on the wire, and their parser. show.h prints them.
namespace rtcp_view {

/// RFC 3550 section 6.4.1.
struct report_block {
    std::uint32_t ssrc = 0;
    std::uint8_t fraction_lost = 0;      ///< 1/256
    std::int32_t lost = 0;               ///< 24 bits, signed
    std::uint32_t highest_sequence = 0;  ///< extended
    std::uint32_t jitter = 0;            ///< RTP timestamp units
    std::uint32_t last_sr = 0;           ///< middle of the NTP time of the report answered, 0: none
    std::uint32_t delay = 0;             ///< since then, 1/65536 s
};

struct sender_info {
    ntp_time sent;
    std::uint32_t rtp_timestamp = 0;
    std::uint32_t packets = 0;
    std::uint32_t octets = 0;
};

struct answered_report {
    std::uint32_t last_sr = 0;
    std::uint32_t delay = 0;  ///< 1/65536 s
};

/// Sender or receiver report. `announced` is the count of the header; blocks that are not there are not in `blocks`.
struct report {
    std::uint32_t ssrc = 0;
    std::optional<sender_info> sender;  ///< absent in a receiver report
    unsigned announced = 0;
    std::vector<report_block> blocks;
    /// fxsmedia announces one block before it knows its peer, but sends only the end of it.
    std::optional<answered_report> blockless;
    protocol::bytes extension;  ///< profile-specific
};

struct sdes_item {
    std::uint8_t type = 0;  ///< 1 CNAME ... 8 PRIV
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
    std::string name;  ///< 4 bytes
    protocol::bytes data;
};

/// RFC 3611 section 2.
struct extended_report {
    std::uint32_t ssrc = 0;
    std::vector<xr_block> blocks;
};

struct packet {
    std::uint8_t type = 0;  ///< 200 SR ... 207 XR
    std::variant<opaque, report, source_description, bye, application, extended_report> body;
    std::string problem;     ///< what is wrong with it; empty: nothing
    protocol::bytes unread;  ///< bytes behind what was understood
};

/// "SR", "XR", ...; the number for types without a name.
std::string type_name(std::uint8_t type);

/// The packets of a compound (RFC 3550 section 6.1), in order; none for no bytes. Takes anything: what does not fit
/// becomes a packet with `problem` set and its bytes kept, so that nothing that was on the wire is lost to the reader.
/// Padding is taken off. The walk goes by the length fields and ends where no header of version 2 follows.
std::vector<packet> parse_compound(protocol::byte_view data);

/// Whether the bytes look like SRTCP (RFC 3711 section 3.4): only the first header can be read, the packets behind it
/// don't chain, and there is room for index and tag. A damaged plain compound is told apart by its second header; one
/// encrypted packet in a hundred looks as if it had one, and is then known by its index.
bool looks_encrypted(protocol::byte_view data);

}  // namespace rtcp_view
