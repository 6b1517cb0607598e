#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/protocol/address.h"
#include "tools/protocol/commands.h"

namespace fxsctl {

/// What the commands and reports that were seen say about one call. A group of settings that no command has touched
/// is not known, unless the ledger saw the call being opened: then it has the process's defaults.
struct known_call {
    bool from_the_start = false;  ///< its open command was seen
    std::uint16_t rtp_port = 0;   ///< 0: not known
    std::uint16_t rtcp_port = 0;

    std::optional<protocol::codec_choice> send;
    bool codecs_known = false;
    std::map<std::uint8_t, std::uint8_t> accepted;  ///< codec by received payload type
    std::uint8_t event_payload_type = 0;            ///< 0: digits go in-band
    std::optional<std::uint16_t> ptime_ms;

    bool destination_known = false;
    std::optional<protocol::address> rtp_dest;
    std::optional<protocol::address> rtcp_dest;
    bool tcp = false;

    bool keys_known = false;
    std::optional<protocol::bytes> rx_key;
    std::optional<protocol::bytes> tx_key;
    std::uint8_t tag_bytes = 0;

    bool line_known = false;
    std::optional<std::uint16_t> line;
    std::optional<std::uint16_t> last_line;  ///< the one before it was taken off

    bool verified = false;                      ///< a packet passed authentication since the keys were set
    std::vector<std::int64_t> stream_times_ms;  ///< when a stream was taken up, on the scale of the messages
};

/// Follows commands to the process and reports from it, and keeps what they say about its calls.
class call_ledger {
public:
    /// Whole elements back to back, as they passed; `time_ms` on any steady scale.
    void add(bool command, protocol::byte_view messages, std::int64_t time_ms);

    /// By call index; calls that were ended are not there.
    std::map<std::uint16_t, known_call> const& calls() const { return by_index; }
    known_call const* find(std::uint16_t call) const;
    /// Calls that were put on this line and not taken off, in that order; the process takes the first two.
    std::vector<std::uint16_t> on_line(std::uint16_t line) const;

private:
    void open(std::uint16_t call);
    void put_on_line(std::uint16_t call, std::optional<std::uint16_t> line);

    std::map<std::uint16_t, known_call> by_index;
    std::vector<std::uint16_t> line_order;  ///< calls, in the order in which they were put on lines
};

/// Whether a ledger takes anything from an element of this tag, and of which call; nullopt: it doesn't.
std::optional<std::uint16_t> ledger_call(bool command, std::uint16_t tag, protocol::byte_view value);

}  // namespace fxsctl
