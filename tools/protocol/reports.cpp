#include "tools/protocol/reports.h"

#include <string_view>

#include "lib/protocol.h"
#include "lib/wire.h"
#include "tools/protocol/tlv.h"

namespace protocol {
namespace {

/// The sub-fields of one report. Remembers the first field that was asked for and did not fit.
class field_reader {
public:
    explicit field_reader(byte_view value) : list(split_tlvs(value)) {
        if (!list.rest.empty())
            problem = "a sub-field is cut off";
    }

    bool has(int tag) const { return find(tag) != nullptr; }

    std::uint16_t number(int tag) {
        bytes const& value = required(tag);
        if (value.size() == 2)
            return wire::get16(value.data());
        note("sub-field " + std::to_string(tag) + " is no 16-bit number");
        return 0;
    }

    bytes raw(int tag) { return required(tag); }

    std::string string(int tag) {
        bytes const& value = required(tag);
        return {value.begin(), value.end()};
    }

    address endpoint(int tag) {
        std::optional<address> const value = decode_address(required(tag));
        if (!value)
            note("sub-field " + std::to_string(tag) + " is no address");
        return value.value_or(address{});
    }

    std::string const& trouble() const { return problem; }
    void note(std::string_view what) { problem = problem.empty() ? std::string(what) : problem; }

private:
    bytes const* find(int tag) const {
        for (tlv const& element : list.elements)
            if (element.tag == tag)
                return &element.value;
        return nullptr;
    }

    bytes const& required(int tag) {
        static bytes const none;
        bytes const* value = find(tag);
        if (value == nullptr)
            note("sub-field " + std::to_string(tag) + " is missing");
        return value != nullptr ? *value : none;
    }

    tlv_list list;
    std::string problem;
};

report read_log_line(field_reader& in) {
    using namespace report_log;
    return log_line{in.number(level), in.string(text), in.has(detail) ? in.string(detail) : std::string()};
}

report read_open_reply(field_reader& in) {
    using namespace report_open;
    return open_reply{in.number(call), in.number(rtp_port), in.number(rtcp_port)};
}

report read_signal(field_reader& in) {
    return signal_data{in.raw(report_signal::data)};
}

report read_driver_result(field_reader& in) {
    using namespace report_reset_base;
    return driver_result{in.number(command), static_cast<std::int16_t>(in.number(result))};
}

report read_rtcp_copy(field_reader& in) {
    using namespace report_rtcp;
    bool const arrived = in.has(received);
    return rtcp_copy{in.number(call), in.string(call_id), arrived, in.raw(arrived ? received : sent)};
}

report read_tunnel(field_reader& in) {
    using namespace report_tunnel;
    tunnel_data data{in.number(call), in.endpoint(from), in.has(rtcp_data), {}, {}};
    if (in.has(tcp))
        data.tcp = in.number(tcp) != 0;
    data.data = in.raw(data.rtcp ? rtcp_data : rtp_data);
    return data;
}

report read_loopback(field_reader& in) {
    return loopback_result{in.number(report_loopback_test::found) != 0};
}

report read_zrtp(field_reader& in) {
    using namespace report_zrtp;
    return zrtp_data{in.number(call), in.endpoint(from), in.raw(packet)};
}

report read_new_ssrc(field_reader& in) {
    using namespace report_new_ssrc;
    new_ssrc event{in.number(call), in.endpoint(from), in.raw(ssrc)};
    if (event.ssrc.size() != 4)
        in.note("the SSRC has not 4 bytes");
    return event;
}

report read_srtp_verified(field_reader& in) {
    return srtp_verified{in.number(report_srtp_verified::call)};
}

report read_playback_empty(field_reader& in) {
    return playback_empty{in.number(report_playback_empty::call)};
}

struct report_reader {
    int tag;
    report (*read)(field_reader&);
};

constexpr report_reader readers[] = {{report_log::tag, read_log_line},
                                     {report_open::tag, read_open_reply},
                                     {report_signal::tag, read_signal},
                                     {report_reset_base::tag, read_driver_result},
                                     {report_rtcp::tag, read_rtcp_copy},
                                     {report_tunnel::tag, read_tunnel},
                                     {report_loopback_test::tag, read_loopback},
                                     {report_zrtp::tag, read_zrtp},
                                     {report_new_ssrc::tag, read_new_ssrc},
                                     {report_srtp_verified::tag, read_srtp_verified},
                                     {report_playback_empty::tag, read_playback_empty}};

undecodable cannot_decode(tlv const& element, std::string reason) {
    undecodable result{std::move(reason), {}};
    append_tlv(result.data, element.tag, element.value);
    return result;
}

report parse_report(tlv const& element) {
    if (element.tag == report_driver_line::tag)  // a plain text line, no sub-fields
        return driver_line{std::string(element.value.begin(), element.value.end())};
    if (element.tag == report_heartbeat::tag) {
        return element.value.empty() ? report(heartbeat{}) : cannot_decode(element, "a heartbeat is not empty");
    }
    for (report_reader const& reader : readers) {
        if (reader.tag == element.tag) {
            field_reader in(element.value);
            report result = reader.read(in);
            return in.trouble().empty() ? result : cannot_decode(element, in.trouble());
        }
    }
    return cannot_decode(element, "no report has tag " + std::to_string(element.tag));
}

}  // namespace

std::vector<report> parse_reports(byte_view datagram) {
    tlv_list const list = split_tlvs(datagram);
    std::vector<report> reports;
    for (tlv const& element : list.elements)
        reports.push_back(parse_report(element));
    if (!list.rest.empty() || list.elements.empty()) {
        reports.push_back(undecodable{list.rest.empty() ? "empty datagram" : "element is cut off", list.rest});
    }
    return reports;
}

}  // namespace protocol
