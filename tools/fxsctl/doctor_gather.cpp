#include "tools/fxsctl/doctor_gather.h"

#include <poll.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "lib/protocol.h"
#include "lib/wire.h"
#include "tools/doctor/packet_watch.h"
#include "tools/doctor/stream_log.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/local_process.h"
#include "tools/fxsctl/rtcp_reader.h"

namespace fxsctl {
namespace {

using namespace std::chrono_literals;
using doctor::clarity;
using clock = std::chrono::steady_clock;

double system_seconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

clarity clear(bool yes) {
    return yes ? clarity::yes : clarity::no;
}

/// How far counts moved between the first and the last report that had them.
class moving_count {
public:
    void add(std::uint32_t value) {
        moved = first ? std::optional(value - *first) : std::nullopt;
        first = first.value_or(value);
        last = value;
    }
    std::optional<unsigned> first, last, moved;
};

/// What is collected of one call during the window.
struct watched_call {
    call_ports ports;
    doctor::stream_log arriving, leaving;
    unsigned refused = 0;
    std::vector<protocol::rtcp_copy> copies;
    unsigned new_streams = 0;
    bool verified = false;
    bool ipv4 = false, ipv6 = false;  ///< families of its RTP port
    std::uint64_t drops_before = 0;
};

class gathering {
public:
    gathering(settings const& global, std::optional<std::uint16_t> only) : chosen(global), one_call(only) {}

    doctor::observation run(double seconds) {
        seen.seconds = seconds;
        look_at_process();
        if (!seen.process.listens)
            return seen;
        try {
            connection link(chosen);
            seen.through_monitor = link.through_monitor();
            if (find_session(link))
                watch_calls(link, seconds);
        } catch (failure const& failed) {
            if (failed.code() != exit_code::no_answer)
                throw;
            seen.process.answers = false;
        }
        look_at_queue();
        return seen;
    }

private:
    bool is_local() const { return chosen.host.starts_with("127."); }

    void look_at_process() {
        seen.process.address = chosen.process_address();
        if (!is_local())
            return;
        process = local_process::behind(chosen.port);
        if (process)
            seen.process.program = "fxsmedia (" + std::to_string(process->pid()) + ")";
        std::ranges::copy(local_process::locked_out(chosen.port), std::back_inserter(seen.process.locked_out));
        seen.process.listens = std::ranges::any_of(
            udp_sockets(), [&](udp_socket const& one) { return one.local_port == chosen.port && !one.ipv6; });
    }

    /// Of a process that may be mute.
    void look_at_queue() {
        seen.process.state = process ? process->state() : '?';
        for (udp_socket const& one : udp_sockets())
            if (is_local() && one.local_port == chosen.port && !one.ipv6)
                seen.process.unread_commands = one.unread_bytes;
    }

    /// Through a monitor: whether heartbeats still come there, and if not, takes the session back. false: no answer.
    bool find_session(connection& link) {
        if (!link.through_monitor())
            return true;
        auto const is_there = link.client().wait_for<protocol::heartbeat>(1500ms);
        if (is_there)
            return true;
        link.run({});
        seen.process.session_lost = true;
        return true;
    }

    void watch_calls(connection& link, double seconds) {
        std::vector<std::uint16_t> const asked = one_call ? std::vector{*one_call} : every_call();
        for (auto const& [index, ports] : open_calls(link, asked))
            calls[index].ports = ports;
        if (one_call && calls.empty())
            throw failure(exit_code::refused, "call " + std::to_string(*one_call) + " is not open");
        note_sockets();
        std::map<unsigned, std::uint64_t> const positions = device_positions();
        if (!calls.empty())
            watch(link, seconds);
        auto const ledger = link.ask_ledger();
        seen.commands_seen = ledger.has_value();
        describe_lines(positions, ledger);
        describe_strays();
        for (auto const& [index, call] : calls)
            describe_call(index, call, ledger ? ledger->find(index) : nullptr, ledger);
    }

    std::map<unsigned, std::uint64_t> device_positions() const {
        std::map<unsigned, std::uint64_t> positions;
        for (unsigned line = 0; process && line < protocol::slot_count; line++)
            if (auto const device = process->descriptor(process->line_path(line)))
                positions[line] = process->position(*device);
        return positions;
    }

    void note_sockets() {
        for (udp_socket const& one : udp_sockets()) {
            for (auto& [index, call] : calls) {
                if (!is_local() || one.local_port != call.ports.rtp)
                    continue;
                call.drops_before += one.drops;
                (one.ipv6 ? call.ipv6 : call.ipv4) = true;
            }
        }
    }

    void watch(connection& link, double seconds) {
        doctor::packet_watch const packets;
        seen.packets_seen = packets.fd() >= 0 && is_local();
        seen.packets_obstacle = is_local() ? packets.obstacle() : "the process runs on another machine";
        double const begin_s = system_seconds();
        clock::time_point const end =
            clock::now() + std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
        while (clock::now() < end) {
            while (auto const message = link.client().receive(0ms))
                take_report(*message);
            pollfd ready[] = {{link.client().fd(), POLLIN, 0}, {packets.fd(), POLLIN, 0}};
            auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - clock::now());
            poll(ready, 2, static_cast<int>(std::clamp(left, 0ms, 100ms).count()));
            if (packets.fd() >= 0)
                packets.take([&](doctor::seen_datagram const& one) { take_packet(one, one.time_s - begin_s); });
        }
    }

    void take_packet(doctor::seen_datagram const& one, double time_s) {
        bool for_a_call = false;
        for (auto& [index, call] : calls) {
            if (one.unreachable) {
                call.refused += one.from.port == call.ports.rtp;
                continue;
            }
            if (one.arrives && one.to.port == call.ports.rtp && (one.to.ip.size() == 4 ? call.ipv4 : call.ipv6)) {
                for_a_call = true;
                call.arriving.add(one, time_s, one.from);
            }
            if (one.leaves && one.from.port == call.ports.rtp)
                call.leaving.add(one, time_s, one.to);
        }
        constexpr std::size_t rtp_header_bytes = 12;
        bool const is_rtcp =
            one.payload.size() > 1 && one.payload[1] >= 192 && one.payload[1] < 224;  // RFC 5761 section 4
        bool const is_rtp = one.payload.size() > rtp_header_bytes && one.payload[0] >> 6 == 2 && !is_rtcp;
        if (!one.unreachable && one.arrives && is_rtp && !for_a_call)
            elsewhere[{protocol::to_text(one.from), one.to.port, one.to.ip.size() == 16}]++;
    }

    void take_report(protocol::report const& message) {
        if (auto const* copy = std::get_if<protocol::rtcp_copy>(&message);
            copy != nullptr && calls.contains(copy->call))
            calls[copy->call].copies.push_back(*copy);
        if (auto const* fresh = std::get_if<protocol::new_ssrc>(&message);
            fresh != nullptr && calls.contains(fresh->call))
            calls[fresh->call].new_streams++;
        if (auto const* good = std::get_if<protocol::srtp_verified>(&message);
            good != nullptr && calls.contains(good->call))
            calls[good->call].verified = true;
    }

    void describe_lines(std::map<unsigned, std::uint64_t> const& before, std::optional<call_ledger> const& ledger) {
        std::map<unsigned, std::uint64_t> const after = device_positions();
        for (unsigned line = 0; line < protocol::slot_count; line++) {
            doctor::line_facts facts{.line = line};
            if (process) {
                facts.path = process->line_path(line);
                bool const open = after.contains(line);
                facts.is_open = clear(open);
                std::string const trouble = process->line_trouble(line);
                bool const wanted = open || (ledger && !ledger->on_line(static_cast<std::uint16_t>(line)).empty());
                bool const usable = trouble.find("could not open") != trouble.npos;
                facts.trouble = wanted || !usable ? trouble : "";
                if (open && before.contains(line) && after.at(line) != 0)
                    facts.is_read = clear(after.at(line) != before.at(line));
            }
            if (ledger)
                for (std::uint16_t const call : ledger->on_line(static_cast<std::uint16_t>(line)))
                    facts.calls.push_back(call);
            seen.lines.push_back(facts);
        }
    }

    /// Datagrams to ports that nobody has.
    void describe_strays() {
        std::set<std::pair<std::uint16_t, bool>> taken;
        for (udp_socket const& one : udp_sockets()) {
            taken.insert({one.local_port, one.ipv6});
        }
        for (auto const& [key, packets] : elsewhere) {
            auto const& [from, port, ipv6] = key;
            if (!taken.contains({port, ipv6}))
                seen.strays.push_back({from, port, packets});
        }
    }

    void describe_call(std::uint16_t index, watched_call const& call, known_call const* known,
                       std::optional<call_ledger> const& ledger) {
        doctor::call_facts facts{.call = index, .rtp_port = call.ports.rtp};
        std::uint64_t drops = 0;
        for (udp_socket const& one : udp_sockets())
            drops += one.local_port == call.ports.rtp ? one.drops : 0;
        if (is_local()) {
            facts.ipv4 = clear(call.ipv4);
            facts.ipv6 = clear(call.ipv6);
            facts.drops = drops > call.drops_before ? drops - call.drops_before : 0;
        }
        if (known != nullptr)
            describe_settings(*known, facts);
        facts.new_streams = call.new_streams;
        facts.ever_received = facts.ever_received || call.new_streams != 0;
        facts.verified = facts.verified || call.verified;
        facts.refused_by_peer = call.refused;
        facts.arriving = call.arriving.streams(facts.set.accepted);
        facts.leaving = call.leaving.streams(
            facts.set.send_codec >= 0 ? std::map<int, int>{{facts.set.send_payload_type, facts.set.send_codec}}
                                      : std::map<int, int>{});
        describe_reports(call, ledger, facts);
        seen.calls.push_back(std::move(facts));
    }

    static void describe_settings(known_call const& known, doctor::call_facts& facts) {
        doctor::settings_facts& set = facts.set;
        set.codecs = known.codecs_known;
        if (known.send) {
            set.send_codec = known.send->codec;
            set.send_payload_type = known.send->payload_type;
        }
        for (auto const& [type, codec] : known.accepted)
            set.accepted[type] = codec;
        set.destination = known.destination_known;
        set.rtp_dest = known.rtp_dest ? protocol::to_text(*known.rtp_dest) : "";
        set.rtcp_dest = known.rtcp_dest ? protocol::to_text(*known.rtcp_dest) : "";
        set.tcp = known.tcp;
        set.keys = known.keys_known;
        set.receive_key = known.rx_key.has_value();
        set.send_key = known.tx_key.has_value();
        set.line_known = known.line_known;
        set.line = known.line;
        facts.ever_received = !known.stream_times_ms.empty();
        facts.verified = known.verified;
    }

    static void describe_reports(watched_call const& call, std::optional<call_ledger> const& ledger,
                                 doctor::call_facts& facts) {
        rtcp_reader reader;
        if (ledger)
            for (auto const& [other, known] : ledger->calls())
                reader.use({.srtp_rx_key = known.rx_key, .srtp_tx_key = known.tx_key});
        doctor::report_facts& out = facts.reports;
        moving_count sent, accepted, peer_sent, peer_accepted;
        std::uint32_t own_ssrc = 0;
        for (protocol::rtcp_copy const& copy : call.copies) {
            rtcp_reading const reading = reader.read(copy);
            (copy.received ? out.received : out.sent) += reading.readable();
            bool reports_us = false;
            for (rtcp_view::packet const& packet : reading.packets) {
                if (auto const* report = std::get_if<rtcp_view::report>(&packet.body)) {
                    own_ssrc = copy.received ? own_ssrc : report->ssrc;
                    if (report->sender)
                        (copy.received ? peer_sent : sent).add(report->sender->packets);
                    for (rtcp_view::report_block const& block : report->blocks) {
                        bool const about = !copy.received || block.ssrc == own_ssrc;
                        if (about)
                            (copy.received ? peer_accepted : accepted).add(block.highest_sequence);
                        reports_us = reports_us || about;
                    }
                } else if (auto const* extended = std::get_if<rtcp_view::extended_report>(&packet.body)) {
                    for (rtcp_view::xr_block const& block : extended->blocks)
                        if (auto const* m = std::get_if<rtcp_view::voip_metrics>(&block.content);
                            m != nullptr && !copy.received)
                            out.buffer_ms = m->jb_nominal_ms;
                }
            }
            out.peer_reports_us = copy.received ? reports_us : out.peer_reports_us;
        }
        out.sent_packets = sent.moved;
        out.sent_total = sent.last;
        out.accepted = accepted.moved;
        out.peer_sent = peer_sent.moved;
        out.peer_accepted = peer_accepted.moved;
        if (accepted.first && !accepted.moved && out.sent >= 2)
            out.accepted = 1;  // the stream began in between
        if (peer_accepted.first && !peer_accepted.moved)
            out.peer_accepted = std::nullopt;
    }

    settings const& chosen;
    std::optional<std::uint16_t> one_call;
    std::optional<local_process> process;
    doctor::observation seen;
    std::map<std::uint16_t, watched_call> calls;
    std::map<std::tuple<std::string, std::uint16_t, bool>, unsigned> elsewhere;
};

}  // namespace

doctor::observation gather(settings const& global, std::optional<std::uint16_t> call, double seconds) {
    if (global.port == 0)
        throw failure(exit_code::usage,
                      "which process? Give its control port with --port or in the environment variable FXSMEDIA_PORT");
    return gathering(global, call).run(seconds);
}

}  // namespace fxsctl
