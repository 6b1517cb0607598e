#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/protocol/address.h"

/// The commands that call control gives the process: one value type each and the function that builds its datagram.
/// lib/protocol.h names the sub-fields, docs/control-protocol.md explains them.
///
/// Nothing here checks ranges: a test can send what is wrong. An absent optional leaves its sub-field out; the process
/// then takes its default.
namespace protocol {

struct end_command {
    std::optional<std::uint16_t> call;
};

struct log_level_command {
    std::uint16_t level = 0;  ///< lines up to this level are sent
};

struct signal_command {
    std::vector<bytes> data;  ///< one write on the signalling device each
};

struct dtmf_command {
    std::optional<std::uint16_t> call;
    std::uint16_t digit = 0;  ///< telephone-event code: 0 to 9, 10 "*", 11 "#"
};

struct reset_base_command {
    std::uint16_t command = 0;  ///< driver command; only 3 is answered with a report
};

struct playback_command {
    std::optional<std::uint16_t> call;
    std::uint16_t tone_set = 0;  ///< 1 to 16; 0 stops
    std::uint16_t kind = 0;      ///< 1 to 4
};

struct ntp_offset_command {
    std::int32_t seconds = 0;
};

struct tunnel_command {
    std::optional<std::uint16_t> call;
    std::optional<address> to;  ///< absent: where the media goes
    bytes rtp_data;             ///< sent from the RTP port; when empty:
    bytes rtcp_data;            ///< sent from the RTCP port
    bool tcp = false;
};

struct open_command {
    std::optional<std::uint16_t> call;
    std::optional<std::uint16_t> port_min;
    std::optional<std::uint16_t> port_max;
    std::optional<std::uint16_t> tos;
    std::string call_id;  ///< empty: none, and then no copies of RTCP are reported
};

struct codec_choice {
    std::uint8_t codec = 0;
    std::uint8_t payload_type = 0;
};

/// Each group (codec, destination, RTCP XR, SRTP) is applied as a whole when one of its triggering fields is there; its
/// absent fields then take their defaults.
struct media_command {
    std::optional<std::uint16_t> call;
    std::optional<codec_choice> send;
    std::optional<std::uint8_t> event_payload_type;
    std::vector<codec_choice> map;  ///< payload types accepted from the peer
    std::optional<std::uint16_t> ptime_ms;
    std::optional<bytes> ssrc;  ///< 4 bytes
    std::optional<address> rtp_dest;
    std::optional<address> rtcp_dest;
    std::optional<bool> tcp;
    std::optional<std::string> xr_mode;
    std::optional<bytes> srtp_rx_key;  ///< 16 bytes key, 14 bytes salt
    std::optional<bytes> srtp_tx_key;
    std::optional<std::uint8_t> srtp_tag_bytes;
    std::optional<bytes> srtp_mki;
};

struct tdm_command {
    std::optional<std::uint16_t> call;
    std::optional<std::uint16_t> slot;  ///< 0 to 3; anything else or absent takes the call off its line
};

struct session_command {};
struct dump_command {};
struct loopback_test_command {};

struct led_command {
    std::uint16_t pattern = 0;
};

/// One whole datagram each, written by the client library; empty for what no element holds. Datagrams may be appended
/// to one another and sent as one.
bytes encode(end_command const& command);
bytes encode(log_level_command const& command);
bytes encode(signal_command const& command);
bytes encode(dtmf_command const& command);
bytes encode(reset_base_command const& command);
bytes encode(playback_command const& command);
bytes encode(ntp_offset_command const& command);
bytes encode(tunnel_command const& command);
bytes encode(open_command const& command);
bytes encode(media_command const& command);
bytes encode(tdm_command const& command);
bytes encode(session_command const& command);
bytes encode(dump_command const& command);
bytes encode(loopback_test_command const& command);
bytes encode(led_command const& command);

}  // namespace protocol
