#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/protocol/address.h"

/// What the process tells call control: one value type a report, and the parser of a received datagram.
///
/// The parser demands what a report must hold and passes over fields that it does not know. What does not fit comes out
/// as `undecodable` with its bytes: no datagram is lost.
namespace protocol {

struct log_line {
    std::uint16_t level = 0;
    std::string text;
    std::string detail;  ///< empty when absent
};

struct open_reply {
    std::uint16_t call = 0;
    std::uint16_t rtp_port = 0;  ///< 0: no port could be bound
    std::uint16_t rtcp_port = 0;
};

struct signal_data {
    bytes data;  ///< read from the signalling device
};

struct driver_result {
    std::uint16_t command = 0;
    std::int16_t result = 0;  ///< what the driver's ioctl returned, cut to 16 bits; -1 = it failed
};

struct rtcp_copy {
    std::uint16_t call = 0;
    std::string call_id;
    bool received = false;  ///< false: this packet was sent by the process
    bytes packet;           ///< the compound packet
};

struct tunnel_data {
    std::uint16_t call = 0;
    address from;
    bool rtcp = false;  ///< arrived on the RTCP port (or RTCP connection)
    std::optional<bool> tcp;
    bytes data;
};

/// Once a second, and the answer to a session command.
struct heartbeat {};

struct loopback_result {
    bool found = false;
};

struct zrtp_data {
    std::uint16_t call = 0;
    address from;
    bytes packet;
};

struct new_ssrc {
    std::uint16_t call = 0;
    address from;
    bytes ssrc;  ///< 4 bytes
};

struct driver_line {
    std::string text;  ///< one line of the driver's message pipe, may be empty
};

struct srtp_verified {
    std::uint16_t call = 0;
};

struct playback_empty {
    std::uint16_t call = 0;
};

struct undecodable {
    std::string reason;
    bytes data;  ///< the element with its header, or what was left of the datagram
};

using report =
    std::variant<log_line, open_reply, signal_data, driver_result, rtcp_copy, tunnel_data, heartbeat, loopback_result,
                 zrtp_data, new_ssrc, driver_line, srtp_verified, playback_empty, undecodable>;

/// Every report in the datagram, in order; at least one (an empty datagram is one `undecodable`).
std::vector<report> parse_reports(byte_view datagram);

}  // namespace protocol
