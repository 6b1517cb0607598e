#include "tools/fxsctl/call_check.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <thread>

#include "lib/protocol.h"
#include "tools/fxsctl/local_process.h"

namespace fxsctl {
namespace {

using namespace std::chrono_literals;
using protocol::bytes;

constexpr auto grace = 100ms;           ///< for what the process has sent before it answered
constexpr auto first_reports = 2500ms;  ///< of a call just opened: 100 ms and 2.1 s after that
constexpr auto two_reports = 4500ms;    ///< one comes every 2 s

std::string const probe_mark = "fxsprobe";

/// A UDP socket on the way to the process, to which the process sends.
class probe_socket {
public:
    probe_socket(int family, bytes const& ip) : fd(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0)), here{ip, 0} {
        sockaddr_storage address{};
        address.ss_family = static_cast<sa_family_t>(family);
        socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        void* const host = family == AF_INET ? static_cast<void*>(&reinterpret_cast<sockaddr_in&>(address).sin_addr)
                                             : &reinterpret_cast<sockaddr_in6&>(address).sin6_addr;
        std::copy(ip.begin(), ip.end(), static_cast<std::uint8_t*>(host));
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0)
            here.port = port_of(address);
    }
    probe_socket(probe_socket const&) = delete;
    ~probe_socket() { close(fd); }

    bool usable() const { return here.port != 0; }
    protocol::address const& address() const { return here; }

    /// The next answer: its bytes and the port that it came from. false after the time.
    bool receive(bytes& data, std::uint16_t& from, std::chrono::milliseconds wait) const {
        pollfd ready{fd, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(wait.count())) <= 0)
            return false;
        data.resize(64);
        sockaddr_storage sender{};
        socklen_t size = sizeof sender;
        ssize_t const count = recvfrom(fd, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
        data.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        from = port_of(sender);
        return true;
    }

private:
    static std::uint16_t port_of(sockaddr_storage const& address) {  // both families have it at the same place
        return ntohs(reinterpret_cast<sockaddr_in const&>(address).sin_port);
    }

    int fd;
    protocol::address here;
};

/// The address from which this program reaches the process.
bytes own_address(protocol::control_client const& client) {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    if (getsockname(client.fd(), reinterpret_cast<sockaddr*>(&local), &size) != 0 || local.sin_family != AF_INET)
        return {127, 0, 0, 1};  // through a monitor, which is on this machine
    auto const* const first = reinterpret_cast<std::uint8_t const*>(&local.sin_addr);
    return {first, first + sizeof local.sin_addr};
}

bytes probes(std::vector<std::uint16_t> const& calls, std::vector<protocol::address> const& targets) {
    bytes commands;
    for (std::uint16_t const call : calls) {
        for (protocol::address const& to : targets) {
            for (bool const rtcp : {false, true}) {
                bytes data = protocol::to_bytes(probe_mark);
                data.push_back(static_cast<std::uint8_t>(call));
                data.push_back(rtcp);
                bytes const one = protocol::encode(protocol::tunnel_command{
                    .call = call, .to = to, .rtp_data = rtcp ? bytes() : data, .rtcp_data = rtcp ? data : bytes()});
                commands.insert(commands.end(), one.begin(), one.end());
            }
        }
    }
    return commands;
}

void collect(probe_socket const& socket, std::chrono::milliseconds wait, std::map<std::uint16_t, call_ports>& found) {
    bytes data;
    for (std::uint16_t from = 0; socket.receive(data, from, wait); wait = 0ms)
        if (data.size() == probe_mark.size() + 2 && std::equal(probe_mark.begin(), probe_mark.end(), data.begin()))
            (data.back() != 0 ? found[data[probe_mark.size()]].rtcp : found[data[probe_mark.size()]].rtp) = from;
}

[[noreturn]] void refuse(std::string const& reason) {
    throw failure(exit_code::refused, reason);
}

std::string name(std::uint16_t call) {
    return "call " + std::to_string(call);
}

/// Whether blocks are read from the device of the line, by the position that the kernel keeps.
bool is_read(local_process const& process, std::uint16_t line) {
    auto const device = process.descriptor(process.line_path(line));
    if (!device)
        return false;
    std::uint64_t const before = process.position(*device);
    std::this_thread::sleep_for(grace);
    return process.position(*device) != before;
}

std::optional<local_process> process_of(connection const& link) {
    return link.global().host.starts_with("127.") ? local_process::behind(link.global().port) : std::nullopt;
}

std::string line_silence(connection& link, std::uint16_t call, std::uint16_t line) {
    std::string const where = "line " + std::to_string(line);
    auto const process = process_of(link);
    if (std::string const trouble = process ? process->line_trouble(line) : ""; !trouble.empty())
        return trouble;
    if (process && is_read(*process, line))
        return where + " has two calls already, a third one is ignored by the process";
    return where +
           (process ? " gives no audio: its device is open and has no block to read"
                    : " gives no audio, or has two calls already") +
           ", so " + name(call) + " sends nothing";
}

}  // namespace

std::vector<std::uint16_t> every_call() {
    std::vector<std::uint16_t> calls(protocol::call_count);
    std::iota(calls.begin(), calls.end(), std::uint16_t{0});
    return calls;
}

bool is_probe(protocol::description const& command) {
    static std::string const mark = protocol::to_hex(protocol::to_bytes(probe_mark));
    return std::ranges::any_of(command.fields, [](protocol::described_field const& field) {
        auto const* const text = std::get_if<std::string>(&field.value);
        return text != nullptr && text->starts_with(mark);
    });
}

std::map<std::uint16_t, call_ports> open_calls(connection& link, std::vector<std::uint16_t> const& calls) {
    probe_socket const ipv4(AF_INET, own_address(link.client()));
    probe_socket const ipv6(AF_INET6, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
    std::vector<protocol::address> targets;
    for (probe_socket const* one : {&ipv4, &ipv6})
        if (one->usable())
            targets.push_back(one->address());
    std::map<std::uint16_t, call_ports> found;
    link.run(probes(calls, targets));
    for (probe_socket const* one : {&ipv4, &ipv6})
        collect(*one, found.size() < calls.size() ? grace : 0ms, found);
    return found;
}

void require_open(connection& link, std::uint16_t call) {
    if (!link.global().no_session && open_calls(link, {call}).empty())
        refuse(name(call) + " is not open: `fxsctl open --call " + std::to_string(call) + "` opens it");
}

void require_on_line(connection& link, std::uint16_t call, std::uint16_t line) {
    if (link.global().no_session)
        return;
    auto const process = process_of(link);
    if (std::string const trouble = process ? process->line_trouble(line) : ""; !trouble.empty())
        refuse(trouble);
    if (auto const ledger = link.ask_ledger()) {
        std::vector<std::uint16_t> const there = ledger->on_line(line);
        if (there.size() > 2 && there[0] != call && there[1] != call)
            refuse("line " + std::to_string(line) + " has two calls already (" + std::to_string(there[0]) + " and " +
                   std::to_string(there[1]) + "), a third one is ignored by the process");
        return;
    }
    constexpr std::size_t most_on_a_line = 2;
    if (open_calls(link, every_call()).size() <= most_on_a_line || !process || !is_read(*process, line))
        return;
    // Another call than these two may be there: only what the call sends tells.
    if (!link.wait_for_audio({call}, false, two_reports).empty() && link.is_reported(call))
        refuse(line_silence(link, call, line));
}

void require_destination(connection& link, std::uint16_t call) {
    auto const ledger = link.global().no_session ? std::nullopt : link.ask_ledger();
    known_call const* const known = ledger ? ledger->find(call) : nullptr;
    if (known != nullptr && known->destination_known && !known->rtp_dest)
        refuse(name(call) + " has no destination: `fxsctl media --call " + std::to_string(call) +
               " --rtp ADDR:PORT` gives it one");
}

void require_any_line(connection& link, std::uint16_t call) {
    if (link.global().no_session)
        return;
    auto const ledger = link.ask_ledger();
    known_call const* const known = ledger ? ledger->find(call) : nullptr;
    auto const process = process_of(link);
    bool const off = known != nullptr && known->line_known && !known->line;
    if (off || (process && process->open_lines().empty()))
        refuse(name(call) + " is on no line" + (off ? "" : ", no line's device is open") + ": `fxsctl tdm --call " +
               std::to_string(call) + " --line N` puts it on one");
    if (known != nullptr && known->line && process)
        if (std::string const trouble = process->line_trouble(*known->line); !trouble.empty())
            refuse(trouble);
}

void require_audio(connection& link, std::vector<std::uint16_t> const& calls, std::vector<std::uint16_t> const& lines) {
    if (link.global().no_session)
        return;
    auto const process = process_of(link);
    for (std::uint16_t const line : lines)
        if (std::string const trouble = process ? process->line_trouble(line) : ""; !trouble.empty())
            refuse(trouble);
    std::vector<std::uint16_t> const silent = link.wait_for_audio(calls, true, first_reports);
    if (silent.empty())
        return;
    auto const at = std::ranges::find(calls, silent.front()) - calls.begin();
    refuse(line_silence(link, silent.front(), lines[static_cast<std::size_t>(at)]));
}

void require_signalling(connection& link) {
    auto const process = process_of(link);
    if (!process || link.global().no_session)
        return;
    std::string const path = process->signal_path();
    if (path.empty())
        refuse("the process was started without a signalling device (its option --tunnel)");
    if (!process->descriptor(path))
        refuse("the process could not open its signalling device " + path);
}

}  // namespace fxsctl
