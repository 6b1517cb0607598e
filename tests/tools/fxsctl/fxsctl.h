#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>

#include "lib/protocol.h"
#include "tests/tools/fxsctl/run_fxsctl.h"
#include "tools/protocol/tlv.h"

/// A stand-in for the media process: a UDP socket and a thread that notes every command and answers as told. It answers
/// session commands, opens calls (ports 40000 + 2 * index) and obeys only its peer. It is slow, so that a program that
/// doesn't wait for it shows.
class fake_process {
public:
    explicit fake_process(std::uint16_t port = 0) : here(loopback(port)) {
        socklen_t size = sizeof here;
        if (bind(fd, reinterpret_cast<sockaddr const*>(&here), size) != 0)
            throw std::runtime_error("the stand-in cannot bind its port");
        getsockname(fd, reinterpret_cast<sockaddr*>(&here), &size);
        thread = std::thread([this] { serve(); });
    }
    ~fake_process() {
        send_to(port(), {});  // ends the thread
        thread.join();
        close(fd);
    }

    std::uint16_t port() const { return ntohs(here.sin_port); }

    /// From now on every command but session is answered with these bytes (none: with nothing) instead of the usual.
    void answer(std::string const& hex) {
        std::lock_guard const lock(guard);
        answers = protocol::from_hex(hex).value();
    }
    /// Sends to the peer as it is.
    void report(std::string const& hex) {
        std::lock_guard const lock(guard);
        send_to(last_sender, protocol::from_hex(hex).value());
    }
    /// Every command obeyed so far but session, in hexadecimal with its header; waits until there are so many.
    std::vector<std::string> commands(std::size_t count = 0) {
        std::unique_lock lock(guard);
        changed.wait_for(lock, std::chrono::seconds(10), [&] { return received.size() >= count; });
        return received;
    }
    /// Local ports that sent session commands.
    std::set<std::uint16_t> peers() {
        std::lock_guard const lock(guard);
        return senders;
    }

private:
    static sockaddr_in loopback(std::uint16_t port) { return {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}}; }
    static void take_your_time() { std::this_thread::sleep_for(std::chrono::milliseconds(15)); }

    void serve() {
        protocol::bytes datagram(65536);
        sockaddr_in from{};
        socklen_t from_size = sizeof from;
        for (ssize_t size; (size = recvfrom(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&from),
                                            &from_size)) > 0;) {
            take_your_time();
            std::lock_guard const lock(guard);
            auto const taken = protocol::byte_view(datagram).first(static_cast<std::size_t>(size));
            for (protocol::tlv const& element : protocol::split_tlvs(taken).elements)
                take(element, ntohs(from.sin_port));
            changed.notify_all();
        }
    }

    void take(protocol::tlv const& element, std::uint16_t from) {
        using namespace protocol;
        bytes whole;
        append_tlv(whole, element.tag, element.value);
        if (element.tag == cmd_session::tag) {
            take_your_time();
            last_sender = from;
            senders.insert(from);
            send_to(from, whole);  // the answer looks like the command
        } else if (from == last_sender && is_probe(element)) {
            answer_probe(element);
        } else if (from == last_sender) {
            received.push_back(to_hex(whole));
            if (element.tag == cmd_tdm_channel::tag && !answers)
                send_to(from, sender_report(element.value.at(5)));
            if (answers ? !answers->empty() : element.tag == cmd_open::tag)  // fxsctl writes the call index first
                send_to(from, answers ? *answers : open_answer(element.value.at(5)));
        }
    }

    /// The bytes by which fxsctl sees that a call is open: all are, and send from this socket.
    static bool is_probe(protocol::tlv const& element) {
        return element.tag == protocol::cmd_tunnel::tag &&
               protocol::to_hex(element.value).find("66787370726f6265") != std::string::npos;
    }
    void answer_probe(protocol::tlv const& element) {
        for (protocol::tlv const& field : protocol::split_tlvs(element.value).elements)
            if (field.tag == protocol::cmd_tunnel::to && field.value.size() == 6)
                probing = static_cast<std::uint16_t>(field.value[0] << 8 | field.value[1]);
            else if (field.tag == protocol::cmd_tunnel::rtp_data)
                send_to(probing, field.value);
    }
    /// A copy of a report that one packet was sent.
    static protocol::bytes sender_report(std::uint8_t call) {
        using namespace protocol;
        bytes fields, whole;
        append_short(fields, report_rtcp::call, call);
        append_tlv(fields, report_rtcp::call_id, to_bytes("fxsctl"));
        append_tlv(fields, report_rtcp::sent,
                   from_hex("80c80006 11111111 0000000000000000 00000000 00000001 000000a0").value());
        append_tlv(whole, report_rtcp::tag, fields);
        return whole;
    }

    static protocol::bytes open_answer(std::uint8_t call) {
        using namespace protocol;
        auto const rtp_port = static_cast<std::uint16_t>(40000 + 2 * call);
        bytes fields, whole;
        append_short(fields, report_open::call, call);
        append_short(fields, report_open::rtp_port, rtp_port);
        append_short(fields, report_open::rtcp_port, static_cast<std::uint16_t>(rtp_port + 1));
        append_tlv(whole, report_open::tag, fields);
        return whole;
    }

    void send_to(std::uint16_t port, protocol::bytes const& datagram) {
        sockaddr_in const to = loopback(port);
        sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr const*>(&to), sizeof to);
    }

    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in here;
    std::uint16_t last_sender = 0;
    std::uint16_t probing = 0;
    std::mutex guard;
    std::condition_variable changed;
    std::optional<protocol::bytes> answers;
    std::vector<std::string> received;
    std::set<std::uint16_t> senders;
    std::thread thread;
};
