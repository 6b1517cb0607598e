#pragma once

#include <fxsmedia/client.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>

#include "tests/client/message_text.h"
#include "tests/support/loopback.h"

/// The C++ client with a clock of its own, a socket in the place of the process, and a handler that writes down what it
/// is told.
class scripted_client {
public:
    scripted_client() {
        now_ms = 0;
        listen();
    }
    ~scripted_client() { ::close(process); }

    /// start, open CALL, confirm TOKEN, pass MS, answer HEX, close (nobody listens from now on), listen.
    /// Returns what the process received (zeros as z and their number) and what the handler was told.
    std::string act(std::string const& verb, std::string const& argument) {
        out.str("");
        if (verb == "start")
            out << (link.start(port) ? "" : "not started ");
        else if (verb == "open")
            out << (link.send(fxsmedia::open_command{.call = std::stoi(argument)}) ? "" : "refused ");
        else if (verb == "confirm")
            out << (link.confirm(std::stoi(argument)) ? "" : "refused ");
        else if (verb == "answer")
            answer(from_hex(std::string_view(argument).substr(1)));
        else if (verb == "close")
            ::close(std::exchange(process, -1));
        else if (verb == "listen")
            listen();
        else
            now_ms += std::stoi(argument);
        if (verb != "close" && verb != "listen")
            link.serve();
        receive();
        out << "due " << link.timeout_ms();
        return out.str();
    }

    template <class report>
    void on(report const& one) {
        out << text_of(one);
    }
    void on(fxsmedia::session_started const&) { out << "started "; }
    void on(fxsmedia::process_lost const& loss) { out << "lost " << loss.refused << " "; }
    void on(fxsmedia::process_resumed const&) { out << "resumed "; }
    void on(fxsmedia::process_restarted const&) { out << "restarted "; }
    void on(fxsmedia::confirmed const& question) { out << "confirmed " << question.token << " "; }
    void on(fxsmedia::timed_out const& request) { out << "timed_out " << request.tag << " " << request.id << " "; }

private:
    void listen() {
        process = bound_udp_socket(port, SOCK_NONBLOCK);
        port = bound_port(process);
    }
    void answer(std::string const& datagram) {
        sendto(process, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr const*>(&client), sizeof client);
    }
    void receive() {
        static char datagram[65536];
        sockaddr_in from{};
        socklen_t size = sizeof from;
        for (ssize_t n;
             (n = recvfrom(process, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&from), &size)) >= 0;) {
            std::string_view const bytes(datagram, static_cast<std::size_t>(n));
            bool const zeros = std::ranges::all_of(bytes, [](char c) { return c == 0; });
            out << (zeros ? "z" + std::to_string(n) : hex(bytes)) << " ";
            client = zeros ? client : from;
        }
    }

    static inline std::int64_t now_ms = 0;
    static std::int64_t clock() { return now_ms; }

    std::ostringstream out;
    std::uint16_t port = 0;  ///< of the process
    sockaddr_in client{};
    int process = -1;
    fxsmedia::client<scripted_client> link{*this, {.clock_ms = clock}};
};
