#pragma once

#include <string>

struct sip;
struct sipevent_sock;

namespace fxsphone {

/// Where NOTIFY and SUBSCRIBE come in (RFC 6665).
class sip_events {
public:
    sip_events() = default;
    ~sip_events();
    sip_events(sip_events const&) = delete;

    /// An empty text, or what went wrong. The stack must live longer.
    std::string start(sip* stack);
    void stop();

    sipevent_sock* door() const { return events; }

private:
    sipevent_sock* events = nullptr;
};

}  // namespace fxsphone
