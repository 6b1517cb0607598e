#pragma once

#include <fxsmedia/wire.h>

/// The reports: one struct each, with the sub-fields of lib/protocol.h under the names that all programs use for them.
/// Texts, bytes and addresses show into the received datagram: copy what is to be kept.
namespace fxsmedia {

struct log_report {
    static constexpr int tag = protocol::report_log::tag;
    int level = 0;
    std::string_view text;
    std::optional<std::string_view> detail = {};

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_log::level, report.level);
        each(protocol::report_log::text, report.text);
        each(protocol::report_log::detail, report.detail);
    }
};

/// Answers open_command.
struct open_report {
    static constexpr int tag = protocol::report_open::tag;
    int call = 0;
    int rtp_port = 0;  ///< 0: no pair of ports could be bound
    int rtcp_port = 0;

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_open::call, report.call);
        each(protocol::report_open::rtp_port, report.rtp_port);
        each(protocol::report_open::rtcp_port, report.rtcp_port);
    }
};

struct signal_report {
    static constexpr int tag = protocol::report_signal::tag;
    byte_view data;  ///< as one read of the signalling device gave them

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_signal::data, report.data);
    }
};

struct reset_base_report {
    static constexpr int tag = protocol::report_reset_base::tag;
    int command = 0;
    int result = 0;  ///< of the driver; -1: it failed

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_reset_base::command, report.command);
        each(protocol::report_reset_base::result, report.result);
    }
};

/// A copy of an RTCP packet of a call that has an identifier: one of the two.
struct rtcp_report {
    static constexpr int tag = protocol::report_rtcp::tag;
    int call = 0;
    std::string_view call_id;
    std::optional<byte_view> received = {};
    std::optional<byte_view> sent = {};

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_rtcp::call, report.call);
        each(protocol::report_rtcp::call_id, report.call_id);
        each(protocol::report_rtcp::received, report.received);
        each(protocol::report_rtcp::sent, report.sent);
    }
};

/// Something that is no media arrived on a media port: one of the two.
struct tunnel_report {
    static constexpr int tag = protocol::report_tunnel::tag;
    int call = 0;
    endpoint from;
    std::optional<byte_view> rtp_data = {};
    std::optional<byte_view> rtcp_data = {};
    std::optional<bool> tcp = {};

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_tunnel::call, report.call);
        each(protocol::report_tunnel::from, report.from);
        each(protocol::report_tunnel::rtp_data, report.rtp_data);
        each(protocol::report_tunnel::rtcp_data, report.rtcp_data);
        each(protocol::report_tunnel::tcp, report.tcp);
    }
};

/// Once a second, and the answer to a session command; `client` keeps it for itself.
struct heartbeat_report : without_fields {
    static constexpr int tag = protocol::report_heartbeat::tag;
};

struct loopback_report {
    static constexpr int tag = protocol::report_loopback_test::tag;
    bool found = false;

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_loopback_test::found, report.found);
    }
};

struct zrtp_report {
    static constexpr int tag = protocol::report_zrtp::tag;
    int call = 0;
    endpoint from;
    byte_view data;

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_zrtp::call, report.call);
        each(protocol::report_zrtp::from, report.from);
        each(protocol::report_zrtp::packet, report.data);
    }
};

/// A stream was taken up: the first packet of a call, or of a new SSRC.
struct new_ssrc_report {
    static constexpr int tag = protocol::report_new_ssrc::tag;
    int call = 0;
    endpoint from;
    byte_view ssrc;  ///< 4 bytes

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_new_ssrc::call, report.call);
        each(protocol::report_new_ssrc::from, report.from);
        each(protocol::report_new_ssrc::ssrc, report.ssrc);
    }
};

struct driver_report : without_fields {
    static constexpr int tag = protocol::report_driver_line::tag;
    std::string_view text;  ///< a line of the driver's message pipe, may be empty
};

/// The first SRTP packet since the keys were set has passed.
struct srtp_verified_report {
    static constexpr int tag = protocol::report_srtp_verified::tag;
    int call = 0;

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_srtp_verified::call, report.call);
    }
};

struct playback_empty_report {
    static constexpr int tag = protocol::report_playback_empty::tag;
    int call = 0;

    template <class self, class action>
    static constexpr void fields(self& report, action&& each) {
        each(protocol::report_playback_empty::call, report.call);
    }
};

/// Received bytes that are no report.
struct undecodable {
    finding why;
    byte_view data;  ///< the element with its header, or what was left of the datagram
};

/// Reads one datagram and calls take(report) for each report in it, in order, and take(undecodable) for what is none.
template <class... messages>
class report_list {
public:
    static_assert(follow_the_table<messages...>(protocol::report_formats));

    template <class action>
    static void read(byte_view datagram, action&& take) {
        if (datagram.empty())
            take(undecodable{{fault::empty_datagram}, datagram});
        element one;
        for (byte_view rest = datagram; !rest.empty();) {
            byte_view const begin = rest;
            if (!one.take(rest)) {
                take(undecodable{{fault::cut_off}, rest});
                return;
            }
            finding found{fault::unknown_tag};
            static_cast<void>(
                ((one.tag == messages::tag && (found = hand_over<messages>(one.value, take), true)) || ...));
            if (found.what != fault::none)
                take(undecodable{found, begin.first(begin.size() - rest.size())});
        }
    }

private:
    template <class message, class action>
    static finding hand_over(byte_view value, action& take) {
        message report;
        finding found;
        if constexpr (message::tag == driver_report::tag)
            report.text = {reinterpret_cast<char const*>(value.data()), value.size()};
        else
            found = report_reader<message>::read(value, report);
        if constexpr (message::tag == new_ssrc_report::tag)
            found = found.what == fault::none && report.ssrc.size() != 4
                        ? finding{fault::field_malformed, protocol::report_new_ssrc::ssrc}
                        : found;
        if (found.what == fault::none)
            take(static_cast<message const&>(report));
        return found;
    }
};

using reports = report_list<log_report, open_report, signal_report, reset_base_report, rtcp_report, tunnel_report,
                            heartbeat_report, loopback_report, zrtp_report, new_ssrc_report, driver_report,
                            srtp_verified_report, playback_empty_report>;

}  // namespace fxsmedia
