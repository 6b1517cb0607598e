#include "tools/protocol/reports.h"

#include <array>
#include <string_view>

#include "tools/protocol/tags.h"
#include "tools/protocol/tlv.h"

namespace protocol {
namespace {

// The sub-fields of one report. Remembers the first field that was asked for and did not fit.
class field_reader {
public:
    explicit field_reader(byte_view value) : list(split_tlvs(value)) {
        if (!list.rest.empty())
            problem = "a sub-field is cut off";
    }

    bool has(std::uint16_t tag) const { return find(tag) != nullptr; }

    std::uint16_t number(std::uint16_t tag) {
        bytes const& value = required(tag);
        if (value.size() != 2) {
            note("sub-field " + std::to_string(tag) + " is no 16-bit number");
            return 0;
        }
        return static_cast<std::uint16_t>(value[0] << 8 | value[1]);
    }

    bytes raw(std::uint16_t tag) { return required(tag); }

    std::string string(std::uint16_t tag) {
        bytes const& value = required(tag);
        return {value.begin(), value.end()};
    }

    address endpoint(std::uint16_t tag) {
        std::optional<address> const value = decode_address(required(tag));
        if (!value)
            note("sub-field " + std::to_string(tag) + " is no address");
        return value.value_or(address{});
    }

    std::string const& trouble() const { return problem; }
    void note(std::string_view what) { problem = problem.empty() ? std::string(what) : problem; }

private:
    bytes const* find(std::uint16_t tag) const {
        for (tlv const& element : list.elements)
            if (element.tag == tag)
                return &element.value;
        return nullptr;
    }

    bytes const& required(std::uint16_t tag) {
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
    return log_line{in.number(field::level), in.string(field::text),
                    in.has(field::detail) ? in.string(field::detail) : std::string()};
}

report read_open_reply(field_reader& in) {
    return open_reply{in.number(field::call), in.number(field::rtp_port), in.number(field::rtcp_port)};
}

report read_signal(field_reader& in) {
    return signal_data{in.raw(field::signal_in)};
}

report read_driver_result(field_reader& in) {
    return driver_result{in.number(field::driver_command),
                         static_cast<std::int16_t>(in.number(field::driver_result))};
}

report read_rtcp_copy(field_reader& in) {
    bool const received = in.has(field::rtcp_received);
    return rtcp_copy{in.number(field::call), in.string(field::call_id), received,
                     in.raw(received ? field::rtcp_received : field::rtcp_sent)};
}

report read_tunnel(field_reader& in) {
    tunnel_data data{in.number(field::call), in.endpoint(field::address), in.has(field::rtcp_data), {}, {}};
    if (in.has(field::tcp))
        data.tcp = in.number(field::tcp) != 0;
    data.data = in.raw(data.rtcp ? field::rtcp_data : field::rtp_data);
    return data;
}

report read_loopback(field_reader& in) {
    return loopback_result{in.number(field::loopback_found) != 0};
}

report read_zrtp(field_reader& in) {
    return zrtp_data{in.number(field::call), in.endpoint(field::address), in.raw(field::rtp_data)};
}

report read_new_ssrc(field_reader& in) {
    new_ssrc event{in.number(field::call), in.endpoint(field::address), in.raw(field::remote_ssrc)};
    if (event.ssrc.size() != 4)
        in.note("the SSRC has not 4 bytes");
    return event;
}

report read_srtp_verified(field_reader& in) {
    return srtp_verified{in.number(field::call)};
}

report read_playback_empty(field_reader& in) {
    return playback_empty{in.number(field::call)};
}

struct report_reader {
    std::uint16_t tag;
    report (*read)(field_reader&);
};

constexpr std::array<report_reader, 11> readers{{{report_tag::log_line, read_log_line},
                                                 {report_tag::open_reply, read_open_reply},
                                                 {report_tag::signal, read_signal},
                                                 {report_tag::driver_result, read_driver_result},
                                                 {report_tag::rtcp_copy, read_rtcp_copy},
                                                 {report_tag::tunnel, read_tunnel},
                                                 {report_tag::loopback_result, read_loopback},
                                                 {report_tag::zrtp, read_zrtp},
                                                 {report_tag::new_ssrc, read_new_ssrc},
                                                 {report_tag::srtp_verified, read_srtp_verified},
                                                 {report_tag::playback_empty, read_playback_empty}}};

undecodable cannot_decode(tlv const& element, std::string reason) {
    undecodable result{std::move(reason), {}};
    append_tlv(result.data, element.tag, element.value);
    return result;
}

report parse_report(tlv const& element) {
    if (element.tag == report_tag::driver_line)  // a plain text line, no sub-fields
        return driver_line{std::string(element.value.begin(), element.value.end())};
    if (element.tag == report_tag::heartbeat) {
        return element.value.empty() ? report(heartbeat{})
                                     : cannot_decode(element, "a heartbeat is not empty");
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
        reports.push_back(
            undecodable{list.rest.empty() ? "empty datagram" : "element is cut off", list.rest});
    }
    return reports;
}

}  // namespace protocol
