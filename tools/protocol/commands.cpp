#include "tools/protocol/commands.h"

#include <fxsmedia/commands.h>

#include <algorithm>

#include "tools/protocol/tlv.h"

namespace protocol {
namespace {

template <class command>
bytes encoded(command const& one) {
    bytes room(tlv_header_bytes + tlv_longest_value_bytes);
    fxsmedia::datagram_writer writer(room);
    writer.append(one);
    return {writer.datagram().begin(), writer.datagram().end()};
}

/// The library's command has one piece.
struct signal_pieces {
    static constexpr int tag = cmd_signal::tag;
    std::vector<bytes> const& pieces;

    template <class self, class action>
    static void fields(self& command, action&& each) {
        for (bytes const& piece : command.pieces)
            each(cmd_signal::data, fxsmedia::byte_view(piece));
    }
};

template <class type>
std::optional<type> unless_empty(auto const& data) {
    return data.empty() ? std::nullopt : std::optional<type>(data);
}

std::optional<fxsmedia::endpoint> endpoint_of(std::optional<address> const& given) {
    if (!given)
        return std::nullopt;
    fxsmedia::endpoint result;
    result.ip_bytes = static_cast<std::uint8_t>(std::min(given->ip.size(), sizeof result.ip));
    std::copy_n(given->ip.begin(), result.ip_bytes, result.ip);
    result.port = given->port;
    return result;
}

fxsmedia::codec_choice choice_of(codec_choice const& given) {
    return {given.codec, given.payload_type};
}

}  // namespace

bytes encode(end_command const& command) {
    return encoded(fxsmedia::end_command{.call = command.call});
}

bytes encode(log_level_command const& command) {
    return encoded(fxsmedia::log_level_command{.level = command.level});
}

bytes encode(signal_command const& command) {
    return encoded(signal_pieces{command.data});
}

bytes encode(dtmf_command const& command) {
    return encoded(fxsmedia::dtmf_command{.call = command.call, .digit = command.digit});
}

bytes encode(reset_base_command const& command) {
    return encoded(fxsmedia::reset_base_command{.command = command.command});
}

bytes encode(playback_command const& command) {
    return encoded(fxsmedia::play_command{.call = command.call, .kind = command.kind, .set = command.tone_set});
}

bytes encode(ntp_offset_command const& command) {
    return encoded(fxsmedia::ntp_offset_command{.seconds = command.seconds});
}

bytes encode(tunnel_command const& command) {
    return encoded(fxsmedia::tunnel_command{
        .call = command.call,
        .to = endpoint_of(command.to),
        .rtp_data = unless_empty<fxsmedia::byte_view>(command.rtp_data),
        .rtcp_data = unless_empty<fxsmedia::byte_view>(command.rtcp_data),
        .tcp = command.tcp ? std::optional(true) : std::nullopt,
    });
}

bytes encode(open_command const& command) {
    return encoded(fxsmedia::open_command{
        .call = command.call,
        .port_min = command.port_min,
        .port_max = command.port_max,
        .call_id = unless_empty<std::string_view>(command.call_id),
        .tos = command.tos,
    });
}

bytes encode(media_command const& command) {
    std::vector<fxsmedia::codec_choice> map;
    for (codec_choice const& entry : command.map)
        map.push_back(choice_of(entry));
    fxsmedia::media_command media{
        .call = command.call,
        .map = map,
        .ptime = command.ptime_ms,
        .event_pt = command.event_payload_type,
        .ssrc = command.ssrc,
        .rtp = endpoint_of(command.rtp_dest),
        .rtcp = endpoint_of(command.rtcp_dest),
        .tcp = command.tcp,
        .xr = command.xr_mode,
        .srtp_rx_key = command.srtp_rx_key,
        .srtp_tx_key = command.srtp_tx_key,
        .srtp_tag = command.srtp_tag_bytes,
        .srtp_mki = command.srtp_mki,
    };
    if (command.send)
        media.send = choice_of(*command.send);
    return encoded(media);
}

bytes encode(tdm_command const& command) {
    return encoded(fxsmedia::tdm_command{.call = command.call, .line = command.slot});
}

bytes encode(session_command const&) {
    return encoded(fxsmedia::session_command{});
}

bytes encode(dump_command const&) {
    return encoded(fxsmedia::dump_command{});
}

bytes encode(loopback_test_command const&) {
    return encoded(fxsmedia::loopback_test_command{});
}

bytes encode(led_command const& command) {
    return encoded(fxsmedia::led_command{.pattern = command.pattern});
}

}  // namespace protocol
