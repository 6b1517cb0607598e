#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "phone/libre.h"
#include "phone/media_channels.h"

namespace fxsphone {

/// Asks a STUN server (RFC 8489) from where it sees the media ports of a leg: the process sends the requests from the
/// ports themselves, and hands the answers up. Until a call is answered it asks again and again, which keeps the
/// translator's mapping.
class outside_address {
public:
    /// The leg's ports may be used now; leg::outside_rtp and outside_rtcp tell how they look, if anything is known.
    using ready_handler = std::function<void(leg&)>;

    outside_address(media_process& sender, telephone_list& known, ready_handler when_ready)
        : process(sender), telephones(known), ready(std::move(when_ready)) {}
    ~outside_address();
    outside_address(outside_address const&) = delete;

    /// `server`: "host" or "host:port", looked up once; empty: nobody is asked. An empty text, or what went wrong.
    std::string begin(std::string const& server, dnsc* names);

    /// The leg's channel was opened with that RTP port. The leg is ready at once when nobody is to be asked, otherwise
    /// with the answer, or without one after 2.5 s (the first three requests of RFC 8489 section 6.2.1).
    void ask(leg& one, int rtp_port);
    /// Whatever arrived on media ports.
    void heard(fxsmedia::tunnel_report const& report);

    /// Asks again, or gives up, where it is time.
    void pass_time(std::int64_t now_ms);
    /// When pass_time() is to be called; INT64_MAX: nothing is under way.
    std::int64_t due_ms() const;

private:
    using transaction = std::array<std::uint8_t, STUN_TID_SIZE>;
    struct question {
        int tries = 0;
        std::int64_t due_ms = INT64_MAX;
        transaction rtp = {};
        transaction rtcp = {};
    };

    void send(leg const& one);
    void become_ready(leg& one);
    static bool answers(fxsmedia::byte_view packet, transaction const& expected,
                        std::optional<fxsmedia::endpoint>& mapped);

    media_process& process;
    telephone_list& telephones;
    ready_handler ready;
    std::optional<fxsmedia::endpoint> server;
    stun_dns* lookup = nullptr;
    std::array<question, 8> asked;  ///< by channel
    bool silent = false;            ///< the server; said once
};

}  // namespace fxsphone
