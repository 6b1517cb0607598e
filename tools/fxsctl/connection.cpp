#include "tools/fxsctl/connection.h"

#include <algorithm>
#include <iostream>

#include "lib/rtcp_numbers.h"
#include "lib/wire.h"
#include "tools/fxsctl/hub_endpoint.h"
#include "tools/fxsctl/hub_history.h"
#include "tools/fxsctl/output.h"

namespace fxsctl {
namespace {

using clock = std::chrono::steady_clock;

constexpr int loudest_trouble_level = 4;  ///< log levels up to this one are failures, 5 and more are life as usual

/// RFC 3550 section 6.4.1; nullopt when the compound begins with another packet.
std::optional<std::uint32_t> packets_of_sender_report(protocol::byte_view compound) {
    constexpr std::size_t count_offset = 20, sender_info_end = 28;
    if (compound.size() < sender_info_end || compound[1] != rtcp::packet_type::sender_report)
        return std::nullopt;
    return wire::get32(compound.data() + count_offset);
}

}  // namespace

connection::connection(settings const& global) : chosen(global) {
    if (chosen.port == 0) {
        throw failure(exit_code::usage,
                      "which process? Give its control port with --port or in the environment variable FXSMEDIA_PORT");
    }
    bool const may_share = chosen.local_port == 0 && !chosen.no_session;
    int const monitor = may_share ? connect_to_hub(chosen) : -1;
    if (monitor < 0) {
        open_direct();
        return;
    }
    process = protocol::control_client(monitor);
    shared = true;
    if (!trusted_peer(monitor)) {
        throw failure(exit_code::local,
                      "a monitor of another user holds the session; --local-port takes it away from there");
    }
}

void connection::open_direct() {
    process = protocol::control_client::connect_udp(chosen.host, chosen.port, chosen.local_port);
    if (!process.valid()) {
        std::string const port =
            chosen.local_port != 0 ? " (local port " + std::to_string(chosen.local_port) + ")" : "";
        throw failure(exit_code::local, "cannot open the control socket" + port + ": " + process.error());
    }
    if (!chosen.no_session && !process.start_session(chosen.timeout()))
        fail_without_answer();
}

void connection::send(protocol::bytes commands) {
    while (auto const earlier = process.receive(std::chrono::milliseconds(0)))
        remark(*earlier);  // what came before the command does not answer it
    if (!chosen.no_session) {
        protocol::bytes const session = protocol::encode(protocol::session_command{});
        commands.insert(commands.end(), session.begin(), session.end());
    }
    if (!process.send(commands))
        throw failure(exit_code::local, "cannot send the command: " + process.error());
}

void connection::run(protocol::bytes commands) {
    send(std::move(commands));
    wait_until_handled();
}

bool connection::answers_each_of(int session_commands) {
    protocol::bytes commands;
    for (int behind_first = 1; behind_first < session_commands; ++behind_first) {
        protocol::bytes const session = protocol::encode(protocol::session_command{});
        commands.insert(commands.end(), session.begin(), session.end());
    }
    run(std::move(commands));
    for (int behind_first = 1; behind_first < session_commands; ++behind_first) {
        if (!process.wait_for<protocol::heartbeat>(grace_after_heartbeat))
            return false;
    }
    return true;
}

void connection::wait_until_handled() {
    if (chosen.no_session)
        return;
    bool alive = false;
    auto const is_heartbeat = [](protocol::report const& message) {
        return std::holds_alternative<protocol::heartbeat>(message);
    };
    if (!wait_for(is_heartbeat, alive))
        fail_without_answer();
}

bool connection::wait_for(std::function<bool(protocol::report const&)> const& wanted, bool& alive) {
    clock::time_point deadline = clock::now() + chosen.timeout();
    for (;;) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
        auto const message = process.receive(std::max(left, std::chrono::milliseconds(0)));
        if (!message)
            return false;
        if (wanted(*message))
            return true;
        if (std::holds_alternative<protocol::heartbeat>(*message)) {
            alive = true;
            deadline = std::min(deadline, clock::now() + grace_after_heartbeat);
        }
        remark(*message);
    }
}

std::optional<call_ledger> connection::ask_ledger() {
    if (!shared)
        return std::nullopt;
    process.send(history_request());
    history_reader answer;
    clock::time_point const deadline = clock::now() + chosen.timeout();
    while (!answer.complete()) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
        auto const datagram = process.receive_datagram(std::max(left, std::chrono::milliseconds(0)));
        if (!datagram)
            return std::nullopt;
        if (answer.take(*datagram))
            continue;
        for (protocol::report const& message : protocol::parse_reports(*datagram))
            process.kept().push_back(message);
    }
    return answer.ledger();
}

std::vector<std::uint16_t> connection::wait_for_audio(std::vector<std::uint16_t> calls, bool ever,
                                                      std::chrono::milliseconds timeout) {
    auto const is_heard_of = [&](std::uint16_t call) {
        auto const counted = sent.find(call);
        return counted != sent.end() && counted->second.last > (ever ? 0 : counted->second.first);
    };
    clock::time_point const deadline = clock::now() + timeout;
    while (std::erase_if(calls, is_heard_of), !calls.empty()) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
        auto const message = process.receive(std::max(left, std::chrono::milliseconds(0)));
        if (!message)
            break;
        remark(*message);
    }
    return calls;
}

void connection::remark(protocol::report const& message) {
    if (auto const* copy = std::get_if<protocol::rtcp_copy>(&message); copy != nullptr && !copy->received) {
        if (auto const packets = packets_of_sender_report(copy->packet)) {
            sent.try_emplace(copy->call, packet_counts{*packets, *packets});
            sent[copy->call].last = *packets;
        }
    }
    auto const* line = std::get_if<protocol::log_line>(&message);
    bool const trouble = line != nullptr && line->level <= loudest_trouble_level;
    if (trouble || (chosen.verbose && !std::holds_alternative<protocol::heartbeat>(message)))
        std::cerr << "fxsctl: " << text_line(protocol::describe(message)) << std::endl;
}

void connection::fail_without_answer() const {
    std::string const where = chosen.process_address();
    if (process.closed())
        throw failure(exit_code::no_answer, "the monitor that this command went through has ended");
    if (process.refused()) {
        throw failure(exit_code::no_answer, "nothing listens on " + where + ": is fxsmedia running with --port " +
                                                std::to_string(chosen.port) + "?");
    }
    throw failure(exit_code::no_answer,
                  "no answer from " + where + " within " + std::to_string(chosen.timeout_ms) +
                      " ms: the process is busy, or waits for the rest of a command that was sent broken; for that "
                      "there is `fxsctl resync`");
}

protocol::open_reply open_call(connection& link, protocol::open_command const& command) {
    std::uint16_t const call = command.call.value_or(0);
    std::string const name = "call " + std::to_string(call);
    auto const reply = link.request<protocol::open_reply>(
        protocol::encode(command), "the process did not answer the opening of " + name,
        [call](protocol::open_reply const& candidate) { return candidate.call == call; });
    if (reply.rtp_port == 0)
        throw failure(exit_code::refused, name + ": the process found no free pair of ports in the range");
    return reply;
}

}  // namespace fxsctl
