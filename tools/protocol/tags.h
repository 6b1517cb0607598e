// Numbers of the control protocol: top-level tags of either direction and the sub-fields inside them.
#pragma once

#include <cstdint>

namespace protocol {

// Commands: call control to process.
namespace command_tag {
inline constexpr std::uint16_t end = 4, log_level = 7, signal = 8, dtmf = 10, reset_base = 11, playback = 12,
                               ntp_offset = 13, tunnel = 15, open = 16, media = 17, tdm_channel = 18,
                               session = 19, dump = 20, loopback_test = 21, led = 22;
}

// Reports: process to call control.
namespace report_tag {
inline constexpr std::uint16_t log_line = 2, open_reply = 6, signal = 8, driver_result = 11, rtcp_copy = 14,
                               tunnel = 15, heartbeat = 19, loopback_result = 21, zrtp = 23, new_ssrc = 24,
                               driver_line = 25, srtp_verified = 27, playback_empty = 28;
}

// Sub-fields. The same number can mean different things in different messages, so each message's are named
// apart.
namespace field {
inline constexpr std::uint16_t call = 4;                                    // every message about a call
inline constexpr std::uint16_t address = 5, rtp_data = 13, rtcp_data = 14;  // tunnel, both directions
inline constexpr std::uint16_t tcp = 34;                                    // tunnel and media
inline constexpr std::uint16_t level = 1, text = 2, detail = 3;             // log level and log line
inline constexpr std::uint16_t signal_out = 15, signal_in = 2;              // signalling device
inline constexpr std::uint16_t digit = 19;                                  // dtmf
inline constexpr std::uint16_t tone_kind = 28, tone_set = 29;               // playback
inline constexpr std::uint16_t ntp_offset = 20;                             // ntp offset
inline constexpr std::uint16_t driver_command = 27, driver_result = 15;     // reset base
inline constexpr std::uint16_t led_pattern = 27;                            // led
inline constexpr std::uint16_t port_min = 11, port_max = 12, tos = 31;      // open
inline constexpr std::uint16_t call_id = 22;                                // open and RTCP copy
inline constexpr std::uint16_t rtp_port = 13, rtcp_port = 14;               // open reply
inline constexpr std::uint16_t tdm_slot = 18;                               // tdm channel
inline constexpr std::uint16_t send_codec = 6, event_payload_type = 19, codec_map = 16, ptime = 17,
                               ssrc = 33;                     // media: codec
inline constexpr std::uint16_t rtp_dest = 5, rtcp_dest = 26;  // media: destination
inline constexpr std::uint16_t xr_mode = 21;                  // media: RTCP XR
inline constexpr std::uint16_t srtp_rx_key = 23, srtp_tx_key = 24, srtp_tag_length = 25,
                               srtp_mki = 30;                      // media: SRTP
inline constexpr std::uint16_t rtcp_received = 9, rtcp_sent = 10;  // RTCP copy
inline constexpr std::uint16_t loopback_found = 9;                 // loopback result
inline constexpr std::uint16_t remote_ssrc = 32;                   // new SSRC
}  // namespace field

inline constexpr int channel_count = 8;  // call indexes 0 to 7
inline constexpr int line_count = 4;     // TDM slots 0 to 3

}  // namespace protocol
