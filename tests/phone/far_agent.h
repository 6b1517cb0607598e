#pragma once

#include <algorithm>
#include <string>

#include "tests/support/udp_peer.h"

inline std::string next_datagram(udp_peer const& at) {
    std::string buffer(65536, 0);
    ssize_t const n = shows(at.fd(), POLLIN) ? recv(at.fd(), buffer.data(), buffer.size(), 0) : 0;
    return buffer.substr(0, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
}

/// The text behind `begin` up to one of `ends`.
inline std::string between(std::string const& text, std::string const& begin, char const* ends) {
    std::size_t const from = text.find(begin);
    if (from == text.npos)
        return "";
    return text.substr(from + begin.size(), text.find_first_of(ends, from + begin.size()) - from - begin.size());
}

inline std::string header(std::string const& message, std::string const& name) {
    return between(message, "\r\n" + name + ": ", "\r");
}

/// A far end without a mind of its own: SIP over UDP, written and read by the test, in one dialog.
class far_agent {
public:
    explicit far_agent(std::uint16_t port_of_phone) : phone(str(127, 0, 0, 1), port_of_phone) {}

    std::uint16_t port() const { return static_cast<std::uint16_t>(bound_port(sip.fd())); }

    /// The next message that begins so; others, sent again meanwhile, are passed over.
    std::string receive(std::string const& begin) {
        for (int tries = 0; tries < 20; tries++)
            if (std::string const message = next_datagram(sip); message.starts_with(begin) || message.empty())
                return message;
        return "";
    }
    /// The INVITE, or another request, that begins the dialog.
    std::string receive_call(std::string const& method = "INVITE") {
        std::string const invite = receive(method);
        call_id = header(invite, "Call-ID");
        remote = header(invite, "From");
        local = header(invite, "To") + ";tag=far";
        target = between(header(invite, "Contact"), "<", ">");
        return invite;
    }
    /// For an INVITE that takes the call over (RFC 3891).
    std::string replaces() const {
        return "Replaces: " + call_id + ";to-tag=" + between(remote, ";tag=", ";\r") + ";from-tag=far\r\n";
    }
    /// `audio`: what stands behind the port of `media` in SDP, and what follows; empty: no description.
    void answer(std::string const& request, std::string const& status, std::string const& audio = {},
                std::string const& more = {}, udp_peer const* where = nullptr) const {
        std::string const to = header(request, "To");
        send("SIP/2.0 " + status + "\r\nVia: " + header(request, "Via") + "\r\nFrom: " + header(request, "From") +
                 "\r\nTo: " + to + (to.find(";tag=") == to.npos ? ";tag=far" : "") +
                 "\r\nCSeq: " + header(request, "CSeq") + "\r\nCall-ID: " + header(request, "Call-ID") + "\r\n" + more,
             audio, where);
    }
    void request(std::string const& method, int number, std::string const& audio = {}, std::string const& more = {},
                 udp_peer const* where = nullptr) const {
        send(head_of(method, number) + more, audio, where);
    }
    /// A message summary to whom receive_call() has heard subscribe.
    void notify(int number, std::string const& summary) const {
        sip.send(phone, head_of("NOTIFY", number) + contact() +
                            "Event: message-summary\r\nSubscription-State: active;expires=3600\r\nContent-Type: "
                            "application/simple-message-summary\r\nContent-Length: " +
                            std::to_string(summary.size()) + "\r\n\r\n" + summary);
    }
    /// Calls a telephone; then answered() takes what the dialog needs from the first response of 200.
    void call(std::string const& user, std::string const& audio = {}, std::string const& more = {}) {
        target = "sip:" + user + "@127.0.0.1";
        local = "<sip:far@127.0.0.1>;tag=far";
        remote = "<" + target + ">";
        request("INVITE", 1, audio, more);
    }
    std::string answered() {
        std::string const response = receive("SIP/2.0 200");
        remote = header(response, "To");
        target = between(header(response, "Contact"), "<", ">");
        return response;
    }

    udp_peer const sip, media;

private:
    std::string contact() const { return "Contact: <sip:far@127.0.0.1:" + std::to_string(port()) + ">\r\n"; }
    std::string head_of(std::string const& method, int number) const {
        return method + " " + target + " SIP/2.0\r\nVia: SIP/2.0/UDP 127.0.0.1:" + std::to_string(port()) +
               ";branch=z9hG4bK" + method + std::to_string(number) + "\r\nFrom: " + local + "\r\nTo: " + remote +
               "\r\nCall-ID: " + call_id + "\r\nCSeq: " + std::to_string(number) + " " + method +
               "\r\nMax-Forwards: 70\r\n";
    }
    void send(std::string const& head, std::string const& audio, udp_peer const* where) const {
        std::string const sdp = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio " +
                                std::to_string(bound_port((where == nullptr ? media : *where).fd())) + " " + audio +
                                "\r\n";
        sip.send(phone, head + contact() +
                            (audio.empty() ? std::string("Content-Length: 0\r\n\r\n")
                                           : "Content-Type: application/sdp\r\nContent-Length: " +
                                                 std::to_string(sdp.size()) + "\r\n\r\n" + sdp));
    }

    ip_port const phone;
    std::string call_id = "its-own-call", local, remote, target;
};
