#include <algorithm>

#include "tools/doctor/call_rules.h"
#include "tools/doctor/call_texts.h"

namespace doctor {
namespace {

void explain_where_to(observation const& seen, call_facts const& call, std::vector<cause>& causes) {
    settings_facts const& set = call.set;
    bool const counted = call.reports.sent_packets.value_or(0) > 0;
    if ((set.destination && set.rtp_dest.empty()) ||
        (!set.destination && seen.packets_seen && counted && call.leaving.empty() && !set.tcp)) {
        causes.push_back({"no-destination", set.destination ? certainty::certain : certainty::likely,
                          set.destination ? std::string("no media command has given a destination")
                                          : format("%u packets were made, none left", *call.reports.sent_packets),
                          "fxsctl media " + call_option(call) + " --rtp ADDR:PORT"});
        return;
    }
    bool const ipv6 = set.rtp_dest.starts_with('[');
    if (!set.rtp_dest.empty() && (ipv6 ? call.ipv6 : call.ipv4) == clarity::no)
        causes.push_back({"wrong-family", certainty::certain,
                          "the destination " + set.rtp_dest + " is " + (ipv6 ? "IPv6" : "IPv4") +
                              ", the call has no port of this family",
                          ipv6 ? "start the process without --ipv4" : "start the process without --ipv6"});
    if (call.refused_by_peer >= a_few || (call.refused_by_peer != 0 && call.leaving.empty()))
        causes.push_back(
            {"wrong-port", certainty::certain,
             format("nothing listens on %s: %u packets came back as unreachable",
                    call.leaving.empty() ? set.rtp_dest.c_str() : call.leaving[0].to.c_str(), call.refused_by_peer),
             "fxsctl media " + call_option(call) + " --rtp ADDR:PORT, as in the far end's SDP"});
}

/// The far end reports, and not on what we send.
void explain_unheard(call_facts const& call, std::vector<cause>& causes) {
    report_facts const& reports = call.reports;
    bool const stands_still = reports.peer_reports_us && reports.peer_accepted == 0u;
    bool const unknown = !reports.peer_reports_us && reports.received >= 2;
    if (!causes.empty() || reports.sent_packets.value_or(0) < a_few || (!stands_still && !unknown))
        return;
    std::string const evidence =
        format("%u packets left; the far end's reports say that it takes none of them", *reports.sent_packets);
    bool const far_end_encrypts =
        std::ranges::any_of(call.arriving, [](stream const& one) { return one.looks_encrypted; }) ||
        call.set.receive_key;
    if (call.set.keys && call.set.send_key)
        causes.push_back({"wrong-send-key", certainty::likely, evidence,
                          "fxsctl media " + call_option(call) +
                              " --srtp-tx-key @FILE --srtp-rx-key @FILE, with the key that the far end receives with"});
    else if (call.set.keys && far_end_encrypts)
        causes.push_back({"missing-send-key", certainty::likely, evidence + ", which sends encrypted ones itself",
                          "fxsctl media " + call_option(call) + " --srtp-tx-key @FILE --srtp-rx-key @FILE"});
    causes.push_back({"blocked-outbound", causes.empty() ? certainty::likely : certainty::possible, evidence,
                      "look at firewalls on the way, and whether the far end accepts the payload type and listens "
                      "where the packets go"});
}

}  // namespace

verdict examine_sent(observation const& seen, call_facts const& call) {
    verdict found = begin_verdict(seen, call, "phone->network");
    explain_where_to(seen, call, found.causes);
    explain_unheard(call, found.causes);
    found.state = found.causes.empty() ? condition::ok : condition::no_audio;
    bool const sends = !call.leaving.empty() || call.reports.sent_packets.value_or(0) > 0;
    if (found.causes.empty() && !sends) {
        found.state = condition::unseen;
        found.remark = seen.packets_seen && call.reports.sent < 2
                           ? "no packet left, and no reports tell why: open the call with an identifier"
                           : "no packets are seen (" + seen.packets_obstacle + ") and no reports";
    }
    return found;
}

}  // namespace doctor
