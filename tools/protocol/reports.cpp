#include "tools/protocol/reports.h"

#include <fxsmedia/reports.h>

#include <algorithm>

#include "lib/wire.h"

namespace protocol {
namespace {

using fxsmedia::fault;

std::uint16_t word(int number) {
    return static_cast<std::uint16_t>(number);
}

bytes kept(fxsmedia::byte_view data) {
    return {data.begin(), data.end()};
}

address kept(fxsmedia::endpoint const& from) {
    return {kept({from.ip, from.ip_bytes}), from.port};
}

/// What is wrong with a sub-field, or with a report as a whole.
std::string explained(fxsmedia::finding const& found, int tag) {
    std::string const field = "sub-field " + std::to_string(found.field);
    switch (found.what) {
        case fault::empty_datagram: return "empty datagram";
        case fault::cut_off: return "element is cut off";
        case fault::unknown_tag: return "no report has tag " + std::to_string(tag);
        case fault::not_empty: return "a heartbeat is not empty";
        case fault::field_cut_off: return "a sub-field is cut off";
        case fault::field_missing: return field + " is missing";
        default: break;
    }
    if (tag == report_new_ssrc::tag && found.field == report_new_ssrc::ssrc)
        return "the SSRC has not 4 bytes";
    auto const* const message = std::ranges::find(report_formats, tag, &message_format::tag);
    auto const format = std::ranges::find(message->fields, found.field, &field_format::tag);
    return field + (format->kind == value_kind::endpoint ? " is no address" : " is no 16-bit number");
}

/// The library's reports show into the datagram; these own what they hold.
struct keeper {
    std::vector<report>& reports;

    void operator()(fxsmedia::log_report const& r) {
        reports.push_back(log_line{word(r.level), std::string(r.text), std::string(r.detail.value_or(""))});
    }
    void operator()(fxsmedia::open_report const& r) {
        reports.push_back(open_reply{word(r.call), word(r.rtp_port), word(r.rtcp_port)});
    }
    void operator()(fxsmedia::signal_report const& r) { reports.push_back(signal_data{kept(r.data)}); }
    void operator()(fxsmedia::reset_base_report const& r) {
        reports.push_back(driver_result{word(r.command), static_cast<std::int16_t>(r.result)});
    }
    void operator()(fxsmedia::rtcp_report const& r) {
        bool const arrived = r.received.has_value();
        reports.push_back(
            rtcp_copy{word(r.call), std::string(r.call_id), arrived, kept(arrived ? *r.received : *r.sent)});
    }
    void operator()(fxsmedia::tunnel_report const& r) {
        bool const rtcp = r.rtcp_data.has_value();
        reports.push_back(
            tunnel_data{word(r.call), kept(r.from), rtcp, r.tcp, kept(rtcp ? *r.rtcp_data : *r.rtp_data)});
    }
    void operator()(fxsmedia::heartbeat_report const&) { reports.push_back(heartbeat{}); }
    void operator()(fxsmedia::loopback_report const& r) { reports.push_back(loopback_result{r.found}); }
    void operator()(fxsmedia::zrtp_report const& r) {
        reports.push_back(zrtp_data{word(r.call), kept(r.from), kept(r.data)});
    }
    void operator()(fxsmedia::new_ssrc_report const& r) {
        reports.push_back(new_ssrc{word(r.call), kept(r.from), kept(r.ssrc)});
    }
    void operator()(fxsmedia::driver_report const& r) { reports.push_back(driver_line{std::string(r.text)}); }
    void operator()(fxsmedia::srtp_verified_report const& r) { reports.push_back(srtp_verified{word(r.call)}); }
    void operator()(fxsmedia::playback_empty_report const& r) { reports.push_back(playback_empty{word(r.call)}); }
    void operator()(fxsmedia::undecodable const& r) {
        int const tag = r.data.size() < 2 ? 0 : wire::get16(r.data.data());
        reports.push_back(undecodable{explained(r.why, tag), kept(r.data)});
    }
};

}  // namespace

std::vector<report> parse_reports(byte_view datagram) {
    std::vector<report> reports;
    fxsmedia::reports::read(datagram, keeper{reports});
    return reports;
}

}  // namespace protocol
