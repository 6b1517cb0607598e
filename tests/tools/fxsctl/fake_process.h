#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "lib/protocol.h"
#include "tools/protocol/bytes.h"
#include "tools/protocol/tlv.h"

/// A stand-in for the media process: a UDP socket and a thread that notes every command and answers as told.
class fake_process {
public:
    /// Answers session commands and opens calls (ports 40000 + 2 * index), obeys only its peer. It is slow, so that a
    /// program that doesn't wait for it shows.
    explicit fake_process(std::uint16_t port = 0) {
        sockaddr_in local = loopback(port);
        socklen_t size = sizeof local;
        if (bind(fd, reinterpret_cast<sockaddr const*>(&local), size) != 0)
            throw std::runtime_error("the stand-in cannot bind its port");
        timeval const look_around{0, 20000};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &look_around, sizeof look_around);
        getsockname(fd, reinterpret_cast<sockaddr*>(&local), &size);
        bound_port = ntohs(local.sin_port);
        thread = std::jthread([this](std::stop_token const& stop) { serve(stop); });
    }
    ~fake_process() {
        thread = {};
        close(fd);
    }

    std::uint16_t port() const { return bound_port; }

    /// From now on it takes everything and answers nothing.
    void be_silent() { silent = true; }

    /// From now on every command but session is answered with these bytes (none: with nothing) instead of the usual.
    void answer(std::string const& hex) {
        std::lock_guard const lock(guard);
        answers = protocol::from_hex(hex).value();
    }

    /// Sends to the peer as it is.
    void report(std::string const& hex) {
        std::lock_guard const lock(guard);
        send_to_peer(protocol::from_hex(hex).value());
    }

    /// Every command obeyed so far but session, in hexadecimal with its header.
    std::vector<std::string> commands() {
        std::lock_guard const lock(guard);
        return received;
    }
    bool wait_for_commands(std::size_t count) {
        std::unique_lock lock(guard);
        return changed.wait_for(lock, std::chrono::seconds(10), [&] { return received.size() >= count; });
    }

    /// Local ports that sent session commands.
    std::set<std::uint16_t> peers() {
        std::lock_guard const lock(guard);
        return senders;
    }

private:
    static sockaddr_in loopback(std::uint16_t port) {
        return {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    }

    void serve(std::stop_token const& stop) {
        protocol::bytes datagram(65536);
        while (!stop.stop_requested()) {
            sockaddr_in from{};
            socklen_t from_size = sizeof from;
            ssize_t const size = recvfrom(fd, datagram.data(), datagram.size(), 0,
                                          reinterpret_cast<sockaddr*>(&from), &from_size);
            if (size < 0)
                continue;  // time to look around
            take_your_time();
            std::lock_guard const lock(guard);
            auto const taken = protocol::byte_view(datagram).first(static_cast<std::size_t>(size));
            for (protocol::tlv const& element : protocol::split_tlvs(taken).elements)
                take(element, ntohs(from.sin_port));
            changed.notify_all();
        }
    }

    static void take_your_time() { std::this_thread::sleep_for(std::chrono::milliseconds(15)); }

    void take(protocol::tlv const& element, std::uint16_t from) {
        using namespace protocol;
        if (element.tag == cmd_session::tag) {
            take_your_time();
            last_sender = from;
            senders.insert(from);
            bytes heartbeat;
            append_tlv(heartbeat, report_heartbeat::tag, {});
            send_to_peer(heartbeat);
        } else if (from == last_sender) {
            bytes whole;
            append_tlv(whole, element.tag, element.value);
            received.push_back(to_hex(whole));
            if (answers || element.tag == cmd_open::tag)  // fxsctl writes the call index first
                send_to_peer(answers ? *answers : open_answer(element.value.at(5)));
        }
    }

    static protocol::bytes open_answer(std::uint8_t call) {
        using namespace protocol;
        auto const rtp_port = static_cast<std::uint16_t>(40000 + 2 * call);
        bytes fields, answer;
        append_short(fields, report_open::call, call);
        append_short(fields, report_open::rtp_port, rtp_port);
        append_short(fields, report_open::rtcp_port, static_cast<std::uint16_t>(rtp_port + 1));
        append_tlv(answer, report_open::tag, fields);
        return answer;
    }

    void send_to_peer(protocol::bytes const& datagram) {
        sockaddr_in const to = loopback(last_sender);
        if (!silent && !datagram.empty())
            sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr const*>(&to),
                   sizeof to);
    }

    std::atomic<bool> silent = false;
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::uint16_t bound_port = 0;
    std::uint16_t last_sender = 0;
    std::mutex guard;
    std::condition_variable changed;
    std::optional<protocol::bytes> answers;
    std::vector<std::string> received;
    std::set<std::uint16_t> senders;
    std::jthread thread;
};
