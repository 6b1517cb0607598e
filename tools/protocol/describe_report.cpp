#include <algorithm>
#include <array>

#include "tools/protocol/description.h"

namespace protocol {
namespace {

constexpr std::size_t rtcp_header_bytes = 8;

std::int64_t number(int value) {
    return value;
}

// Names of the packets in a compound RTCP packet, "SR SDES XR" (RFC 3550 section 12.1, RFC 3611 section 2).
// An SRTCP packet is readable only in its first 8 bytes; then the walk ends at the first impossible packet.
std::string rtcp_packet_names(byte_view data) {
    static constexpr std::array<char const*, 8> names{"SR",  "RR",    "SDES", "BYE",
                                                      "APP", "RTPFB", "PSFB", "XR"};
    std::string text;
    while (data.size() >= rtcp_header_bytes && data[0] >> 6 == 2 && data[1] >= 200 && data[1] <= 207) {
        std::size_t const length = (static_cast<std::size_t>(data[2] << 8 | data[3]) + 1) * 4;
        text += (text.empty() ? "" : " ") + std::string(names[data[1] - 200U]);
        if (length >= data.size())
            break;
        data = data.subspan(length);
    }
    return text;
}

// The process logs the keys it is given, "SRTP Tx=HEX Rx=HEX".
std::string without_keys(std::string const& text) {
    if (!text.starts_with("SRTP Tx="))
        return text;
    std::string hidden;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const value = std::min(text.find('=', at), text.size() - 1) + 1;
        std::size_t const end = std::min(text.find(' ', value), text.size());
        hidden += text.substr(at, value - at) + "(" + std::to_string((end - value) / 2) + "_bytes)";
        at = end;
    }
    return hidden;
}

struct describer {
    keys show;

    description operator()(log_line const& r) const {
        std::string const text = show == keys::shown ? r.text : without_keys(r.text);
        description d{"log", {{"level", number(r.level)}, {"text", text}}};
        if (!r.detail.empty())
            d.fields.push_back({"detail", r.detail});
        return d;
    }
    description operator()(open_reply const& r) const {
        return {
            "open",
            {{"call", number(r.call)}, {"rtp_port", number(r.rtp_port)}, {"rtcp_port", number(r.rtcp_port)}}};
    }
    description operator()(signal_data const& r) const { return {"signal", {{"data", to_hex(r.data)}}}; }
    description operator()(driver_result const& r) const {
        return {"reset-base", {{"command", number(r.command)}, {"result", number(r.result)}}};
    }
    description operator()(rtcp_copy const& r) const {
        return {"rtcp",
                {{"call", number(r.call)},
                 {"call_id", r.call_id},
                 {"direction", std::string(r.received ? "received" : "sent")},
                 {"packets", rtcp_packet_names(r.packet)},
                 {"data", to_hex(r.packet)}}};
    }
    description operator()(tunnel_data const& r) const {
        description d{"tunnel", {{"call", number(r.call)}, {"from", to_text(r.from)}, {"rtcp", r.rtcp}}};
        if (r.tcp)
            d.fields.push_back({"tcp", *r.tcp});
        d.fields.push_back({"data", to_hex(r.data)});
        return d;
    }
    description operator()(heartbeat const&) const { return {"heartbeat", {}}; }
    description operator()(loopback_result const& r) const { return {"loopback", {{"found", r.found}}}; }
    description operator()(zrtp_data const& r) const {
        return {"zrtp", {{"call", number(r.call)}, {"from", to_text(r.from)}, {"data", to_hex(r.packet)}}};
    }
    description operator()(new_ssrc const& r) const {
        return {"new-ssrc", {{"call", number(r.call)}, {"from", to_text(r.from)}, {"ssrc", to_hex(r.ssrc)}}};
    }
    description operator()(driver_line const& r) const { return {"driver", {{"text", r.text}}}; }
    description operator()(srtp_verified const& r) const {
        return {"srtp-verified", {{"call", number(r.call)}}};
    }
    description operator()(playback_empty const& r) const {
        return {"playback-empty", {{"call", number(r.call)}}};
    }
    description operator()(undecodable const& r) const {
        return {"undecodable", {{"reason", r.reason}, {"data", to_hex(r.data)}}};
    }
};

}  // namespace

description describe(report const& message, keys show) {
    return std::visit(describer{show}, message);
}

std::vector<std::string> const& report_names() {
    static std::vector<std::string> const names{
        "log",      "open", "signal",   "reset-base", "rtcp",          "tunnel",         "heartbeat",
        "loopback", "zrtp", "new-ssrc", "driver",     "srtp-verified", "playback-empty", "undecodable"};
    return names;
}

}  // namespace protocol
