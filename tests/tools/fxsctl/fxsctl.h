#pragma once

#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "lib/protocol.h"
#include "tests/support/loopback.h"
#include "tests/tools/fxsctl/run_fxsctl.h"
#include "tools/protocol/tlv.h"

/// A stand-in for the media process: a UDP socket and a thread that notes every command and answers as told. It answers
/// session commands, opens calls (ports 40000 + 2 * index) and obeys only its peer. It is slow, so that a program that
/// doesn't wait for it shows.
class fake_process {
public:
    explicit fake_process(std::uint16_t port = 0) : fd(bound_udp_socket(port)), thread([this] { serve(); }) {}
    ~fake_process() {
        send_to(port(), {});  // ends the thread
        thread.join();
        close(fd);
    }

    std::uint16_t port() const { return bound_port(fd); }

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
        protocol::bytes copy = protocol::from_hex(
                                   "000e0030 00040002 0000 00160006 667873637463 000a001c 80c80006 11111111"
                                   "0000000000000000 00000000 00000001 000000a0")
                                   .value();
        copy.at(9) = call;
        return copy;
    }
    static protocol::bytes open_answer(std::uint8_t call) {
        protocol::bytes answer = protocol::from_hex("00060012 00040002 0000 000d0002 9c40 000e0002 9c41").value();
        answer.at(9) = call;
        for (std::size_t const port_at : {15U, 21U})
            answer.at(port_at) = static_cast<std::uint8_t>(answer.at(port_at) + 2 * call);
        return answer;
    }

    void send_to(std::uint16_t port, protocol::bytes const& datagram) {
        send_to_port(fd, port, datagram.data(), datagram.size());
    }

    int const fd;
    std::uint16_t last_sender = 0;
    std::uint16_t probing = 0;
    std::mutex guard;
    std::condition_variable changed;
    std::optional<protocol::bytes> answers;
    std::vector<std::string> received;
    std::set<std::uint16_t> senders;
    std::thread thread;
};
