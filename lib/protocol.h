#pragma once

#include <span>

/// The control protocol as a table: what call control may order, what the process reports, and what stands inside
/// (docs/control-protocol.md explains it; lib/tlv.h and lib/wire.h hold the bytes). Process, programs, tests and
/// generators of other languages read the same table; parsers they have each their own.
///
/// Every command is a namespace cmd_..., every report a namespace report_...; in it stand `tag`, one constant for each
/// sub-field, and `fields`, the list of them. A sub-field converts to its tag, so it can be compared with a received
/// tag, stand behind `case` and be given to an encoder. The same number means different things in different messages.
/// Everything is known to the compiler: what a program does not use takes no memory in it.
namespace protocol {

/// How a sub-field's value is written; integers are big-endian.
enum class value_kind {
    number,         ///< 2 bytes, unsigned
    signed_number,  ///< 2 bytes, two's complement
    flag,           ///< 2 bytes, 0 or not 0
    byte,           ///< 1 byte, unsigned
    signed_long,    ///< 4 bytes, two's complement
    text,           ///< any number of bytes, no terminating zero
    data,           ///< any number of bytes
    secret,         ///< bytes that are shown to nobody
    endpoint,       ///< 2 bytes port, then 4 (IPv4) or 16 (IPv6) bytes of address
    codec_to_send,  ///< 2 bytes: RTP payload type, codec number
    codec_to_map,   ///< 2 bytes: codec number, RTP payload type
};

/// Parts of the media command that are applied as a whole, and only when one of their triggering fields is there.
enum class media_group { none, codec, destination, rtcp_xr, srtp };

/// One sub-field of a message. Fields of commands may all be left out; those of reports are always there unless
/// optional.
struct field_format {
    int tag;
    char const* name;  ///< as programs print it
    value_kind kind;
    int fallback = 0;       ///< numbers in commands: the value of an absent one; other kinds are then empty
    int lowest = 0;         ///< numbers: the values that mean something are lowest to highest ...
    int highest = 0xFFFF;   ///< ... any other is taken too, see the documentation
    bool repeats = false;   ///< each one counts; of any other field the last one does
    bool optional = false;  ///< reports only
    media_group group = media_group::none;
    bool triggers = false;  ///< its presence makes the group apply

    constexpr operator int() const { return tag; }
};

/// One command or report.
struct message_format {
    int tag;
    char const* name;  ///< as programs print it
    std::span<field_format const> fields;
    bool plain_text = false;  ///< the value is a text, not a sequence of sub-fields
};

inline constexpr int call_count = 8;  ///< call indexes 0 to 7
inline constexpr int no_call = call_count;
inline constexpr int slot_count = 4;  ///< TDM slots (lines) 0 to 3
inline constexpr int no_slot = slot_count;

/// Call control's UDP port on 127.0.0.1 until the command line or a session command says otherwise.
inline constexpr int default_peer_port = 1299;

/// In every message about a call.
inline constexpr field_format call_field{4, "call", value_kind::number, no_call, 0, call_count - 1};

// Commands: call control to process.

namespace cmd_end {
inline constexpr int tag = 4;
inline constexpr field_format call = call_field;
inline constexpr field_format ignored{21, "ignored", value_kind::number};  ///< understood, without effect
inline constexpr field_format fields[] = {call, ignored};
}  // namespace cmd_end

namespace cmd_log_level {
inline constexpr int tag = 7;
inline constexpr field_format level{
    .tag = 1, .name = "level", .kind = value_kind::number, .highest = 9, .repeats = true};
inline constexpr field_format fields[] = {level};
}  // namespace cmd_log_level

namespace cmd_signal {
inline constexpr int tag = 8;
inline constexpr field_format data{.tag = 15, .name = "data", .kind = value_kind::data, .repeats = true};
inline constexpr field_format fields[] = {data};
}  // namespace cmd_signal

namespace cmd_dtmf {
inline constexpr int tag = 10;
inline constexpr field_format call = call_field;
/// Event code of RFC 4733 section 3.2: 0 to 9, 10 "*", 11 "#".
inline constexpr field_format digit{19, "digit", value_kind::number, 0, 0, 11};
inline constexpr field_format fields[] = {call, digit};
}  // namespace cmd_dtmf

namespace cmd_reset_base {
inline constexpr int tag = 11;
inline constexpr field_format command{27, "command", value_kind::number};  ///< passed on to the driver
inline constexpr field_format fields[] = {command};
}  // namespace cmd_reset_base

namespace cmd_playback {
inline constexpr int tag = 12;
inline constexpr field_format call = call_field;
inline constexpr field_format tone_kind{28, "kind", value_kind::number, 0, 1, 4};
inline constexpr field_format tone_set{29, "set", value_kind::number, 0, 1, 16};
inline constexpr field_format fields[] = {call, tone_kind, tone_set};
}  // namespace cmd_playback

namespace cmd_ntp_offset {
inline constexpr int tag = 13;
inline constexpr field_format seconds{20, "seconds", value_kind::signed_long};
inline constexpr field_format fields[] = {seconds};
}  // namespace cmd_ntp_offset

namespace cmd_tunnel {
inline constexpr int tag = 15;
inline constexpr field_format call = call_field;
inline constexpr field_format to{5, "to", value_kind::endpoint};
inline constexpr field_format rtp_data{13, "rtp_data", value_kind::data};
inline constexpr field_format rtcp_data{14, "rtcp_data", value_kind::data};  ///< when rtp_data is empty
inline constexpr field_format tcp{34, "tcp", value_kind::flag};
inline constexpr field_format fields[] = {call, to, rtp_data, rtcp_data, tcp};
}  // namespace cmd_tunnel

namespace cmd_open {
inline constexpr int tag = 16;
inline constexpr field_format call = call_field;
/// First dynamic port, RFC 6335 section 6.
inline constexpr field_format port_min{11, "port_min", value_kind::number, 49152};
/// RTP ports stay below; absent: below the end of all ports.
inline constexpr field_format port_max{12, "port_max", value_kind::number, 65536};
inline constexpr field_format call_id{22, "call_id", value_kind::text};
/// IP type of service; absent: precedence 5 (RFC 791 section 3.1).
inline constexpr field_format tos{31, "tos", value_kind::number, 0xA0, 0, 0xFF};
inline constexpr field_format fields[] = {call, port_min, port_max, call_id, tos};
}  // namespace cmd_open

namespace cmd_media {
inline constexpr int tag = 17;

constexpr field_format of_group(media_group group, field_format field) {
    field.group = group;
    return field;
}
constexpr field_format trigger_of(media_group group, field_format field) {
    field.group = group;
    field.triggers = true;
    return field;
}

inline constexpr field_format call = call_field;

inline constexpr field_format send_codec = trigger_of(media_group::codec, {6, "send", value_kind::codec_to_send});
inline constexpr field_format codec_map =
    trigger_of(media_group::codec, {.tag = 16, .name = "map", .kind = value_kind::codec_to_map, .repeats = true});
/// ms; absent: RFC 3551 section 4.2.
inline constexpr field_format ptime = trigger_of(media_group::codec, {17, "ptime", value_kind::number, 20});
inline constexpr field_format event_payload_type =
    trigger_of(media_group::codec, {19, "event_pt", value_kind::byte, 0, 0, 127});
/// 4 bytes; absent: random ones.
inline constexpr field_format ssrc = of_group(media_group::codec, {33, "ssrc", value_kind::data});

inline constexpr field_format rtp_dest = trigger_of(media_group::destination, {5, "rtp", value_kind::endpoint});
inline constexpr field_format rtcp_dest = trigger_of(media_group::destination, {26, "rtcp", value_kind::endpoint});
inline constexpr field_format tcp = of_group(media_group::destination, {34, "tcp", value_kind::flag});

inline constexpr field_format xr_mode = trigger_of(media_group::rtcp_xr, {21, "xr", value_kind::text});

/// 16 bytes master key, 14 bytes master salt.
inline constexpr field_format srtp_rx_key = trigger_of(media_group::srtp, {23, "srtp_rx_key", value_kind::secret});
inline constexpr field_format srtp_tx_key = trigger_of(media_group::srtp, {24, "srtp_tx_key", value_kind::secret});
/// Bytes of the authentication tag, at most those of HMAC-SHA1.
inline constexpr field_format srtp_tag = trigger_of(media_group::srtp, {25, "srtp_tag", value_kind::byte, 0, 0, 20});
inline constexpr field_format srtp_mki = trigger_of(media_group::srtp, {30, "srtp_mki", value_kind::data});

inline constexpr field_format fields[] = {call,        send_codec,  codec_map, ptime,   event_payload_type,
                                          ssrc,        rtp_dest,    rtcp_dest, tcp,     xr_mode,
                                          srtp_rx_key, srtp_tx_key, srtp_tag,  srtp_mki};
}  // namespace cmd_media

namespace cmd_tdm_channel {
inline constexpr int tag = 18;
inline constexpr field_format call = call_field;
inline constexpr field_format slot{18, "line", value_kind::number, no_slot, 0, slot_count - 1};
inline constexpr field_format fields[] = {call, slot};
}  // namespace cmd_tdm_channel

namespace cmd_session {
inline constexpr int tag = 19;
}

namespace cmd_dump {
inline constexpr int tag = 20;
}

namespace cmd_loopback_test {
inline constexpr int tag = 21;
}

namespace cmd_led {
inline constexpr int tag = 22;
/// The first one counts.
inline constexpr field_format pattern{27, "pattern", value_kind::number, 0, 0, 3};
inline constexpr field_format fields[] = {pattern};
}  // namespace cmd_led

/// Every command, by tag.
inline constexpr message_format command_formats[] = {
    {cmd_end::tag, "end", cmd_end::fields},
    {cmd_log_level::tag, "log-level", cmd_log_level::fields},
    {cmd_signal::tag, "signal", cmd_signal::fields},
    {cmd_dtmf::tag, "dtmf", cmd_dtmf::fields},
    {cmd_reset_base::tag, "reset-base", cmd_reset_base::fields},
    {cmd_playback::tag, "play", cmd_playback::fields},
    {cmd_ntp_offset::tag, "ntp-offset", cmd_ntp_offset::fields},
    {cmd_tunnel::tag, "tunnel", cmd_tunnel::fields},
    {cmd_open::tag, "open", cmd_open::fields},
    {cmd_media::tag, "media", cmd_media::fields},
    {cmd_tdm_channel::tag, "tdm", cmd_tdm_channel::fields},
    {cmd_session::tag, "session", {}},
    {cmd_dump::tag, "dump", {}},
    {cmd_loopback_test::tag, "loopback-test", {}},
    {cmd_led::tag, "led", cmd_led::fields},
};

// Reports: process to call control. Fields stand in this order on the wire.

namespace report_log {
inline constexpr int tag = 2;
inline constexpr field_format level{1, "level", value_kind::number, 0, 0, 9};
inline constexpr field_format text{2, "text", value_kind::text};
inline constexpr field_format detail{.tag = 3, .name = "detail", .kind = value_kind::text, .optional = true};
inline constexpr field_format fields[] = {level, text, detail};
}  // namespace report_log

namespace report_open {
inline constexpr int tag = 6;
inline constexpr field_format call = call_field;
inline constexpr field_format rtp_port{13, "rtp_port", value_kind::number};    ///< 0: none could be bound
inline constexpr field_format rtcp_port{14, "rtcp_port", value_kind::number};  ///< 0: none could be bound
inline constexpr field_format fields[] = {call, rtp_port, rtcp_port};
}  // namespace report_open

namespace report_signal {
inline constexpr int tag = 8;
inline constexpr field_format data{2, "data", value_kind::data};
inline constexpr field_format fields[] = {data};
}  // namespace report_signal

namespace report_reset_base {
inline constexpr int tag = 11;
inline constexpr field_format command{27, "command", value_kind::number};
inline constexpr field_format result{15, "result", value_kind::signed_number};
inline constexpr field_format fields[] = {command, result};
}  // namespace report_reset_base

namespace report_rtcp {
inline constexpr int tag = 14;
inline constexpr field_format call = call_field;
inline constexpr field_format call_id{22, "call_id", value_kind::text};
/// One of these two: the compound packet.
inline constexpr field_format received{.tag = 9, .name = "received", .kind = value_kind::data, .optional = true};
inline constexpr field_format sent{.tag = 10, .name = "sent", .kind = value_kind::data, .optional = true};
inline constexpr field_format fields[] = {call, call_id, received, sent};
}  // namespace report_rtcp

namespace report_tunnel {
inline constexpr int tag = 15;
inline constexpr field_format call = call_field;
inline constexpr field_format from{5, "from", value_kind::endpoint};
/// One of these two: what arrived on that side.
inline constexpr field_format rtp_data{.tag = 13, .name = "rtp_data", .kind = value_kind::data, .optional = true};
inline constexpr field_format rtcp_data{.tag = 14, .name = "rtcp_data", .kind = value_kind::data, .optional = true};
inline constexpr field_format tcp{.tag = 34, .name = "tcp", .kind = value_kind::flag, .optional = true};
inline constexpr field_format fields[] = {call, from, rtp_data, rtcp_data, tcp};
}  // namespace report_tunnel

namespace report_heartbeat {
inline constexpr int tag = 19;
}

namespace report_loopback_test {
inline constexpr int tag = 21;
inline constexpr field_format found{9, "found", value_kind::flag};
inline constexpr field_format fields[] = {found};
}  // namespace report_loopback_test

namespace report_zrtp {
inline constexpr int tag = 23;
inline constexpr field_format call = call_field;
inline constexpr field_format from{5, "from", value_kind::endpoint};
inline constexpr field_format packet{13, "data", value_kind::data};
inline constexpr field_format fields[] = {call, from, packet};
}  // namespace report_zrtp

namespace report_new_ssrc {
inline constexpr int tag = 24;
inline constexpr field_format call = call_field;
inline constexpr field_format from{5, "from", value_kind::endpoint};
inline constexpr field_format ssrc{32, "ssrc", value_kind::data};  ///< 4 bytes
inline constexpr field_format fields[] = {call, from, ssrc};
}  // namespace report_new_ssrc

namespace report_driver_line {
inline constexpr int tag = 25;
}

namespace report_srtp_verified {
inline constexpr int tag = 27;
inline constexpr field_format call = call_field;
inline constexpr field_format fields[] = {call};
}  // namespace report_srtp_verified

namespace report_playback_empty {
inline constexpr int tag = 28;
inline constexpr field_format call = call_field;
inline constexpr field_format fields[] = {call};
}  // namespace report_playback_empty

/// Every report, by tag.
inline constexpr message_format report_formats[] = {
    {report_log::tag, "log", report_log::fields},
    {report_open::tag, "open", report_open::fields},
    {report_signal::tag, "signal", report_signal::fields},
    {report_reset_base::tag, "reset-base", report_reset_base::fields},
    {report_rtcp::tag, "rtcp", report_rtcp::fields},
    {report_tunnel::tag, "tunnel", report_tunnel::fields},
    {report_heartbeat::tag, "heartbeat", {}},
    {report_loopback_test::tag, "loopback", report_loopback_test::fields},
    {report_zrtp::tag, "zrtp", report_zrtp::fields},
    {report_new_ssrc::tag, "new-ssrc", report_new_ssrc::fields},
    {report_driver_line::tag, "driver", {}, true},
    {report_srtp_verified::tag, "srtp-verified", report_srtp_verified::fields},
    {report_playback_empty::tag, "playback-empty", report_playback_empty::fields},
};

/// Codec numbers of the media command.
namespace codec_number {
inline constexpr int linear = 0;  ///< 16-bit samples in the byte order of the machine
inline constexpr int pcmu = 1;
inline constexpr int pcma = 2;
inline constexpr int g729 = 3;
inline constexpr int gsm = 4;
inline constexpr int g722 = 5;
inline constexpr int g726 = 6;             ///< 32 kbit/s
inline constexpr int telephone_event = 7;  ///< only received
}  // namespace codec_number

struct codec_format {
    int number;
    char const* name;
    int payload_type;  ///< RFC 3551 table 4; where that has none, a dynamic one that is free here
};

/// Every codec, by number.
inline constexpr codec_format codec_formats[] = {
    {codec_number::linear, "linear", 96}, {codec_number::pcmu, "pcmu", 0},
    {codec_number::pcma, "pcma", 8},      {codec_number::g729, "g729", 18},
    {codec_number::gsm, "gsm", 3},        {codec_number::g722, "g722", 9},
    {codec_number::g726, "g726", 102},    {codec_number::telephone_event, "telephone-event", 101},
};

}  // namespace protocol
