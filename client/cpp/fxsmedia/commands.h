#pragma once

#include <fxsmedia/wire.h>

/// The commands: one struct each, with the sub-fields of lib/protocol.h under the names that all programs use for them.
/// docs/control-protocol.md says what they do.
///
/// What is left out is not sent; the process then takes its default. Texts, bytes and the codec map are views: what
/// they show must live until the command is sent.
namespace fxsmedia {

struct end_command {
    static constexpr int tag = protocol::cmd_end::tag;
    std::optional<int> call = {};     ///< 0 to 7
    std::optional<int> ignored = {};  ///< has no effect

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_end::call, command.call);
        each(protocol::cmd_end::ignored, command.ignored);
    }
};

struct log_level_command {
    static constexpr int tag = protocol::cmd_log_level::tag;
    std::optional<int> level = {};  ///< 0 to 9: lines up to this level are reported

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_log_level::level, command.level);
    }
};

struct signal_command {
    static constexpr int tag = protocol::cmd_signal::tag;
    std::optional<byte_view> data = {};  ///< one write on the signalling device

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_signal::data, command.data);
    }
};

struct dtmf_command {
    static constexpr int tag = protocol::cmd_dtmf::tag;
    std::optional<int> call = {};
    std::optional<int> digit = {};  ///< event code of RFC 4733: 0 to 9, 10 "*", 11 "#"

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_dtmf::call, command.call);
        each(protocol::cmd_dtmf::digit, command.digit);
    }
};

struct reset_base_command {
    static constexpr int tag = protocol::cmd_reset_base::tag;
    std::optional<int> command = {};  ///< for the line driver; only 3 is answered

    template <class self, class action>
    static constexpr void fields(self& message, action&& each) {
        each(protocol::cmd_reset_base::command, message.command);
    }
};

struct play_command {
    static constexpr int tag = protocol::cmd_playback::tag;
    std::optional<int> call = {};
    std::optional<int> kind = {};  ///< 1 ring-back, 2 busy, 3 congestion, 4 dial tone; absent: stops
    std::optional<int> set = {};   ///< tone set, 1 to 16; absent: stops

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_playback::call, command.call);
        each(protocol::cmd_playback::tone_kind, command.kind);
        each(protocol::cmd_playback::tone_set, command.set);
    }
};

struct ntp_offset_command {
    static constexpr int tag = protocol::cmd_ntp_offset::tag;
    std::optional<int> seconds = {};  ///< added to the clock for the NTP times in RTCP

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_ntp_offset::seconds, command.seconds);
    }
};

struct tunnel_command {
    static constexpr int tag = protocol::cmd_tunnel::tag;
    std::optional<int> call = {};
    std::optional<endpoint> to = {};          ///< absent: where the media goes
    std::optional<byte_view> rtp_data = {};   ///< leaves from the RTP port
    std::optional<byte_view> rtcp_data = {};  ///< leaves from the RTCP port, when rtp_data is absent or empty
    std::optional<bool> tcp = {};

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_tunnel::call, command.call);
        each(protocol::cmd_tunnel::to, command.to);
        each(protocol::cmd_tunnel::rtp_data, command.rtp_data);
        each(protocol::cmd_tunnel::rtcp_data, command.rtcp_data);
        each(protocol::cmd_tunnel::tcp, command.tcp);
    }
};

struct open_command {
    static constexpr int tag = protocol::cmd_open::tag;
    std::optional<int> call = {};
    std::optional<int> port_min = {};              ///< lowest RTP port; absent: 49152
    std::optional<int> port_max = {};              ///< RTP ports stay below; absent: all above port_min
    std::optional<std::string_view> call_id = {};  ///< with it, copies of all RTCP packets are reported
    std::optional<int> tos = {};                   ///< IP type of service; absent: 160

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_open::call, command.call);
        each(protocol::cmd_open::port_min, command.port_min);
        each(protocol::cmd_open::port_max, command.port_max);
        each(protocol::cmd_open::call_id, command.call_id);
        each(protocol::cmd_open::tos, command.tos);
    }
};

/// Each group (codec, destination, RTCP XR, SRTP) is applied as a whole when one of its fields marked * is there; its
/// absent fields then take their defaults.
struct media_command {
    static constexpr int tag = protocol::cmd_media::tag;
    std::optional<int> call = {};
    std::optional<codec_choice> send = {};      ///< *
    std::span<codec_choice const> map = {};     ///< * what is accepted from the far end
    std::optional<int> ptime = {};              ///< * ms; absent: 20
    std::optional<int> event_pt = {};           ///< * payload type of telephone events; absent: digits are sent in band
    std::optional<byte_view> ssrc = {};         ///< 4 bytes; absent: random
    std::optional<endpoint> rtp = {};           ///< *
    std::optional<endpoint> rtcp = {};          ///< * absent: no RTCP is sent
    std::optional<bool> tcp = {};               ///< over TCP connections
    std::optional<std::string_view> xr = {};    ///< * names of extended report blocks; "": none
    std::optional<byte_view> srtp_rx_key = {};  ///< * 16 bytes key, 14 bytes salt
    std::optional<byte_view> srtp_tx_key = {};  ///< *
    std::optional<int> srtp_tag = {};           ///< * bytes; absent: 0, RFC 3711 wants 10
    std::optional<byte_view> srtp_mki = {};     ///< *

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_media::call, command.call);
        each(protocol::cmd_media::send_codec, command.send);
        each(protocol::cmd_media::codec_map, command.map);
        each(protocol::cmd_media::ptime, command.ptime);
        each(protocol::cmd_media::event_payload_type, command.event_pt);
        each(protocol::cmd_media::ssrc, command.ssrc);
        each(protocol::cmd_media::rtp_dest, command.rtp);
        each(protocol::cmd_media::rtcp_dest, command.rtcp);
        each(protocol::cmd_media::tcp, command.tcp);
        each(protocol::cmd_media::xr_mode, command.xr);
        each(protocol::cmd_media::srtp_rx_key, command.srtp_rx_key);
        each(protocol::cmd_media::srtp_tx_key, command.srtp_tx_key);
        each(protocol::cmd_media::srtp_tag, command.srtp_tag);
        each(protocol::cmd_media::srtp_mki, command.srtp_mki);
    }
};

struct tdm_command {
    static constexpr int tag = protocol::cmd_tdm_channel::tag;
    std::optional<int> call = {};
    std::optional<int> line = {};  ///< 0 to 3; anything else or absent: takes the call off its line

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_tdm_channel::call, command.call);
        each(protocol::cmd_tdm_channel::slot, command.line);
    }
};

/// Makes its sender the process's peer; `client` sends it.
struct session_command : without_fields {
    static constexpr int tag = protocol::cmd_session::tag;
};

struct dump_command : without_fields {
    static constexpr int tag = protocol::cmd_dump::tag;
};

struct loopback_test_command : without_fields {
    static constexpr int tag = protocol::cmd_loopback_test::tag;
};

struct led_command {
    static constexpr int tag = protocol::cmd_led::tag;
    std::optional<int> pattern = {};  ///< 0 to 3

    template <class self, class action>
    static constexpr void fields(self& command, action&& each) {
        each(protocol::cmd_led::pattern, command.pattern);
    }
};

static_assert(
    follow_the_table<end_command, log_level_command, signal_command, dtmf_command, reset_base_command, play_command,
                     ntp_offset_command, tunnel_command, open_command, media_command, tdm_command, session_command,
                     dump_command, loopback_test_command, led_command>(protocol::command_formats));

}  // namespace fxsmedia
