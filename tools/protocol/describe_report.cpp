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
    static constexpr std::array<const char*, 8> names{"SR",  "RR",    "SDES", "BYE",
                                                      "APP", "RTPFB", "PSFB", "XR"};
    std::string text;
    while (data.size() >= rtcp_header_bytes && data[0] >> 6 == 2 && data[1] >= 200 && data[1] <= 207) {
        const std::size_t length = (static_cast<std::size_t>(data[2] << 8 | data[3]) + 1) * 4;
        text += (text.empty() ? "" : " ") + std::string(names[data[1] - 200U]);
        if (length >= data.size()) {
            break;
        }
        data = data.subspan(length);
    }
    return text;
}

// The process logs the keys it is given, "SRTP Tx=HEX Rx=HEX".
std::string without_keys(const std::string& text) {
    if (!text.starts_with("SRTP Tx=")) {
        return text;
    }
    std::string hidden;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t value = std::min(text.find('=', at), text.size() - 1) + 1;
        const std::size_t end = std::min(text.find(' ', value), text.size());
        hidden += text.substr(at, value - at) + "(" + std::to_string((end - value) / 2) + "_bytes)";
        at = end;
    }
    return hidden;
}

struct describer {
    keys show;

    description operator()(const log_line& r) const {
        const std::string text = show == keys::shown ? r.text : without_keys(r.text);
        description d{"log", {{"level", number(r.level)}, {"text", text}}};
        if (!r.detail.empty()) {
            d.fields.push_back({"detail", r.detail});
        }
        return d;
    }
    description operator()(const open_reply& r) const {
        return {
            "open",
            {{"call", number(r.call)}, {"rtp_port", number(r.rtp_port)}, {"rtcp_port", number(r.rtcp_port)}}};
    }
    description operator()(const signal_data& r) const { return {"signal", {{"data", to_hex(r.data)}}}; }
    description operator()(const driver_result& r) const {
        return {"reset-base", {{"command", number(r.command)}, {"result", number(r.result)}}};
    }
    description operator()(const rtcp_copy& r) const {
        return {"rtcp",
                {{"call", number(r.call)},
                 {"call_id", r.call_id},
                 {"direction", std::string(r.received ? "received" : "sent")},
                 {"packets", rtcp_packet_names(r.packet)},
                 {"data", to_hex(r.packet)}}};
    }
    description operator()(const tunnel_data& r) const {
        description d{"tunnel", {{"call", number(r.call)}, {"from", to_text(r.from)}, {"rtcp", r.rtcp}}};
        if (r.tcp) {
            d.fields.push_back({"tcp", *r.tcp});
        }
        d.fields.push_back({"data", to_hex(r.data)});
        return d;
    }
    description operator()(const heartbeat&) const { return {"heartbeat", {}}; }
    description operator()(const loopback_result& r) const { return {"loopback", {{"found", r.found}}}; }
    description operator()(const zrtp_data& r) const {
        return {"zrtp", {{"call", number(r.call)}, {"from", to_text(r.from)}, {"data", to_hex(r.packet)}}};
    }
    description operator()(const new_ssrc& r) const {
        return {"new-ssrc", {{"call", number(r.call)}, {"from", to_text(r.from)}, {"ssrc", to_hex(r.ssrc)}}};
    }
    description operator()(const driver_line& r) const { return {"driver", {{"text", r.text}}}; }
    description operator()(const srtp_verified& r) const {
        return {"srtp-verified", {{"call", number(r.call)}}};
    }
    description operator()(const playback_empty& r) const {
        return {"playback-empty", {{"call", number(r.call)}}};
    }
    description operator()(const undecodable& r) const {
        return {"undecodable", {{"reason", r.reason}, {"data", to_hex(r.data)}}};
    }
};

}  // namespace

description describe(const report& message, keys show) {
    return std::visit(describer{show}, message);
}

const std::vector<std::string>& report_names() {
    static const std::vector<std::string> names{
        "log",      "open", "signal",   "reset-base", "rtcp",          "tunnel",         "heartbeat",
        "loopback", "zrtp", "new-ssrc", "driver",     "srtp-verified", "playback-empty", "undecodable"};
    return names;
}

}  // namespace protocol
