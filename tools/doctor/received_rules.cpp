#include <algorithm>
#include <cmath>
#include <numeric>

#include "lib/protocol.h"
#include "tools/doctor/call_rules.h"
#include "tools/doctor/call_texts.h"

namespace doctor {
namespace {

constexpr double pause_s = 2;           ///< without packets: longer than a breath, shorter than a window
constexpr double too_quiet_dbfs = -42;  ///< speech lies 15 to 30 dB below full scale
constexpr double moving_db = 10;        ///< speech does, a line's noise doesn't
constexpr double clipped_share = 0.05;
constexpr double silent_share = 0.98;
constexpr double other_law_times = 1.25;   ///< tones of 3 kHz reach 1.2 by the right law
constexpr double drift_limit_ppm = 200;    ///< crystals keep to 100 each
constexpr unsigned buffer_limit_ms = 240;  ///< of the 16 packets that the jitter buffer waits for at most

std::string accepted_list(call_facts const& call) {
    std::string list;
    for (auto const& [type, codec] : call.set.accepted)
        if (codec != protocol::codec_number::telephone_event)
            list += (list.empty() ? "" : ", ") + std::to_string(type);
    return list.empty() ? "no payload type" : "only " + list;
}

bool is_known_unmapped(call_facts const& call, stream const& one) {
    return call.set.codecs && !call.set.accepted.contains(one.payload_type);
}

std::vector<stream> accepted_streams(call_facts const& call) {
    std::vector<stream> fed;
    for (stream const& one : call.arriving) {
        auto const codec = call.set.accepted.find(one.payload_type);
        bool const is_event =
            codec != call.set.accepted.end() && codec->second == protocol::codec_number::telephone_event;
        if (!is_known_unmapped(call, one) && !is_event)
            fed.push_back(one);
    }
    return fed;
}

unsigned packets_of(std::vector<stream> const& streams) {
    return std::accumulate(streams.begin(), streams.end(), 0u,
                           [](unsigned n, stream const& one) { return n + one.packets; });
}

bool nothing_accepted(call_facts const& call) {
    return call.reports.sent >= 2 && call.reports.accepted.value_or(0) == 0;
}

std::string rtp_address(call_facts const& call) {
    return "port " + std::to_string(call.rtp_port);
}

// ---- no packet arrives

std::string host_of(std::string const& address) {
    return address.substr(0, address.rfind(':'));
}

/// Every program of this machine is there, so that the host alone names no peer.
bool is_loopback(std::string const& host) {
    return host.starts_with("127.") || host == "[::1]";
}

void add_strays(observation const& seen, call_facts const& call, std::vector<cause>& causes) {
    for (stray const& one : seen.strays) {
        bool const from_there = one.from == call.set.rtp_dest;
        std::string const host = host_of(one.from);
        bool const our_peer = from_there || (host == host_of(call.set.rtp_dest) && !is_loopback(host));
        bool const same_port = one.port == call.rtp_port;
        if (one.packets < a_few || (!call.set.rtp_dest.empty() && !our_peer && !same_port))
            continue;
        causes.push_back(
            {same_port ? "wrong-family" : "wrong-port",
             from_there || same_port ? certainty::certain : certainty::likely,
             format("%u RTP packets from %s arrived at port %u, where nothing listens; the call has port %u%s",
                    one.packets, one.from.c_str(), one.port, call.rtp_port,
                    same_port ? " in the other family only" : ""),
             "tell the far end to send to " + rtp_address(call) +
                 (same_port ? ", or start the process without --ipv4 and --ipv6" : "")});
    }
}

void explain_no_packet(observation const& seen, call_facts const& call, std::vector<cause>& causes) {
    add_strays(seen, call, causes);
    if (!causes.empty())
        return;
    if (call.reports.peer_sent.value_or(0) > a_few)
        causes.push_back({"blocked-inbound", certainty::likely,
                          format("the far end's reports say that it sent %u packets, none arrived at port %u",
                                 *call.reports.peer_sent, call.rtp_port),
                          "open UDP port " + std::to_string(call.rtp_port) + " in the firewalls on the way"});
    else if (call.ever_received || call.reports.accepted)
        causes.push_back({"stream-stopped", certainty::certain,
                          format("a stream was received earlier, in these %.1f s came no packet", seen.seconds),
                          "ask the far end: it holds the call, has ended it, or lost its way here"});
    else
        causes.push_back(
            {"nothing-arrives", certainty::likely,
             format("no packet came to port %u in %.1f s", call.rtp_port, seen.seconds),
             "give the far end this host's address and " + rtp_address(call) + " (SDP); look at firewalls"});
}

// ---- packets arrive, the process does not take them

void explain_unmapped(call_facts const& call, std::vector<cause>& causes) {
    for (stream const& one : call.arriving)
        if (is_known_unmapped(call, one) && one.packets >= a_few)
            causes.push_back({"payload-type-not-mapped", certainty::certain,
                              format("%u packets of payload type %d from %s, the map has %s", one.packets,
                                     int{one.payload_type}, one.from.c_str(), accepted_list(call).c_str()),
                              map_cure(call, one.payload_type)});
}

void explain_keys(call_facts const& call, stream const& main, std::vector<cause>& causes) {
    if (!call.set.keys)
        return;
    if (call.set.receive_key &&
        (nothing_accepted(call) || call.wrong_tags != 0 || (!call.verified && !main.looks_encrypted)))
        causes.push_back(
            {"wrong-receive-key",
             call.wrong_tags != 0 || nothing_accepted(call) ? certainty::certain : certainty::likely,
             format("%u packets from %s, none has the authentication tag of the receive key%s", main.packets,
                    main.from.c_str(), main.looks_encrypted ? "" : "; their payload is not encrypted"),
             "fxsctl media " + call_option(call) +
                 " --srtp-rx-key @FILE --srtp-tx-key @FILE, with the keys that the far end sends with"});
    if (!call.set.receive_key && main.looks_encrypted)
        causes.push_back(
            {"missing-receive-key", certainty::certain,
             format("%u packets from %s are encrypted, the call has no receive key", main.packets, main.from.c_str()),
             "fxsctl media " + call_option(call) + " --srtp-rx-key @FILE --srtp-tx-key @FILE"});
}

void explain_not_accepted(call_facts const& call, std::vector<stream> const& fed, std::vector<cause>& causes) {
    if (!nothing_accepted(call) || !causes.empty())
        return;
    std::string const evidence = format("%u packets of payload type %d from %s arrived, the process took none",
                                        fed[0].packets, int{fed[0].payload_type}, fed[0].from.c_str());
    causes.push_back({"payload-type-not-mapped", call.set.codecs ? certainty::possible : certainty::likely, evidence,
                      map_cure(call, fed[0].payload_type)});
    causes.push_back({"wrong-receive-key", certainty::possible, evidence,
                      "fxsctl media " + call_option(call) + " --srtp-rx-key @FILE --srtp-tx-key @FILE"});
}

// ---- audio comes, but wrong

void explain_fight(call_facts const& call, std::vector<stream> const& fed, std::vector<cause>& causes) {
    for (std::size_t other = 1; other < fed.size(); other++) {
        stream const &a = fed[0], &b = fed[other];
        bool const together = a.first_s < b.last_s && b.first_s < a.last_s;
        if (a.ssrc == b.ssrc || !together || b.packets < a_few)
            continue;
        causes.push_back(
            {"ssrc-fight", certainty::certain,
             format("two senders at once: SSRC %08x from %s (%u packets), SSRC %08x from %s (%u packets); "
                    "the process changed over %u times",
                    a.ssrc, a.from.c_str(), a.packets, b.ssrc, b.from.c_str(), b.packets, call.new_streams),
             "end one of the senders: let only the far end's address through to " + rtp_address(call)});
        return;
    }
}

void explain_sound(stream const& one, std::vector<cause>& causes) {
    if (!one.heard || one.packets < 20)
        return;
    stream::sound const& heard = *one.heard;
    char const* const law = one.payload_type == 0 ? "mu-law" : "A-law";
    if (heard.digital_silence >= silent_share)
        causes.push_back({"digital-silence", certainty::certain,
                          format("%.0f %% of %u packets hold one value only", 100 * heard.digital_silence, one.packets),
                          "the far end is muted, on hold, or has no microphone: look there"});
    else if (heard.other_law_smoother > other_law_times)
        causes.push_back({"other-law", certainty::likely,
                          format("payload type %d says %s; read by the other law the sound is %.1f times smoother",
                                 int{one.payload_type}, law, heard.other_law_smoother),
                          "mend the far end; or map it: --map " + std::to_string(one.payload_type) +
                              (one.payload_type == 0 ? "=pcma" : "=pcmu")});
    else if (heard.clipped > clipped_share)
        causes.push_back({"clipped", certainty::likely,
                          format("%.0f %% of the samples are at the end of the scale", 100 * heard.clipped),
                          "lower the level at the far end"});
    else if (heard.level_dbfs < too_quiet_dbfs && heard.dynamic_db > moving_db)
        causes.push_back({"level-too-low", certainty::likely,
                          format("the loudest 100 ms have %.0f dBFS; speech has -15 to -30", heard.level_dbfs),
                          "raise the level at the far end"});
}

void explain_stream(call_facts const& call, stream const& one, std::vector<cause>& causes) {
    if (one.odd_lengths > one.packets / 2 && !call.set.receive_key)
        causes.push_back({"odd-packet-length", certainty::certain,
                          format("%u of %u packets hold no multiple of 10 ms (%zu bytes); the rest of each is dropped",
                                 one.odd_lengths, one.packets, one.payload_bytes),
                          "have the far end send packets of 10, 20, 30 or 40 ms (a=ptime in SDP)"});
    if (one.drift_ppm && std::abs(*one.drift_ppm) - one.drift_doubt_ppm > drift_limit_ppm)
        causes.push_back({"clock-drift", certainty::likely,
                          format("the far end's clock is %.0f ppm %s (+- %.0f)", std::abs(*one.drift_ppm),
                                 *one.drift_ppm > 0 ? "fast" : "slow", one.drift_doubt_ppm),
                          "mend the far end's sample clock; `fxsctl refresh " + call_option(call) +
                              "` takes away the delay that has gathered"});
    explain_sound(one, causes);
}

void explain_quality(observation const& seen, call_facts const& call, std::vector<stream> const& fed,
                     std::vector<cause>& causes) {
    explain_fight(call, fed, causes);
    if (!fed.empty()) {
        double last_s = 0;
        for (stream const& one : fed)
            last_s = std::max(last_s, one.last_s);
        if (seen.seconds - last_s > pause_s)
            causes.push_back({"stream-stopped", certainty::certain,
                              format("the last packet came %.1f s before the end of the %.1f s", seen.seconds - last_s,
                                     seen.seconds),
                              "ask the far end: it holds the call, has ended it, or suppresses silence"});
        explain_stream(call, fed[0], causes);
    }
    if (call.drops != 0)
        causes.push_back({"socket-overflow", certainty::certain,
                          format("%llu datagrams to port %u found no room in the socket's queue",
                                 static_cast<unsigned long long>(call.drops), call.rtp_port),
                          "limit what may send there; give the process real-time priority (chrt -p)"});
    if (call.reports.buffer_ms.value_or(0) >= buffer_limit_ms)
        causes.push_back({"buffer-at-ceiling", certainty::certain,
                          format("the jitter buffer holds %u ms", *call.reports.buffer_ms),
                          "fxsctl refresh " + call_option(call)});
}

bool comes_in(call_facts const& call, std::vector<stream> const& fed) {
    return call.reports.accepted.value_or(0) > 0 || (!fed.empty() && !call.reports.accepted);
}

}  // namespace

verdict examine_received(observation const& seen, call_facts const& call) {
    verdict found = begin_verdict(seen, call, "network->phone");
    std::vector<cause>& causes = found.causes;
    std::vector<stream> const fed = accepted_streams(call);
    if (!call.set.tcp && seen.packets_seen) {
        if (call.arriving.empty())
            explain_no_packet(seen, call, causes);
        else if (packets_of(fed) < a_few)
            explain_unmapped(call, causes);
        else
            explain_keys(call, fed[0], causes);
        if (packets_of(fed) >= a_few)
            explain_not_accepted(call, fed, causes);
    } else if (nothing_accepted(call)) {
        bool const before = call.ever_received || call.reports.accepted.has_value();
        causes.push_back({before ? "stream-stopped" : "nothing-arrives", certainty::likely,
                          "the process took no packet from the network",
                          "run fxsctl doctor as root: it then sees whether packets arrive"});
    }
    found.state = causes.empty() ? condition::ok : condition::no_audio;
    bool const heard = causes.empty();
    explain_quality(seen, call, fed, causes);
    if (heard && !causes.empty())
        found.state = causes[0].id == "stream-stopped" || causes[0].id == "digital-silence" ? condition::no_audio
                                                                                            : condition::bad_audio;
    if (causes.empty() && !comes_in(call, fed)) {
        found.state = condition::unseen;
        found.remark = "no packets are seen" + (seen.packets_seen ? "" : " (" + seen.packets_obstacle + ")") +
                       " and no reports: open the call with an identifier";
    }
    return found;
}

}  // namespace doctor
