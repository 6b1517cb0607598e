#pragma once

#include <functional>
#include <string>

#include "phone/forked_answers.h"
#include "phone/tls_context.h"

struct sa;
struct sip;
struct sip_lsnr;
struct sip_msg;
struct sipsess_sock;
struct dnsc;

namespace fxsphone {

/// The SIP stack: transports, transactions, and the door at which calls come in. Requests that are not whole get
/// 400, those that require what we cannot do 420; OPTIONS is answered (RFC 3261 section 11.2), any other request
/// outside of a call with 501.
class sip_agent {
public:
    using incoming_handler = std::function<void(sip_msg const*)>;

    ~sip_agent();

    /// Listens on UDP and TCP, on TLS where a registrar is reached by it or we have a certificate. An empty text, or
    /// what went wrong. `trace`: messages are printed on standard error. `inviting` takes INVITEs that begin a call,
    /// `updating` every UPDATE (RFC 3311); both have to answer.
    std::string start(phone_settings const& settings, bool trace, incoming_handler inviting, incoming_handler updating);
    /// Ends transactions in their own time, then libre's main loop.
    void stop();

    /// Whether an address, "sip:user@host:port", is one of those that it listens on.
    bool is_here(std::string const& uri) const;

    /// Where sessions begin; nullptr before start() and after stop().
    sipsess_sock* door() const { return sessions; }
    /// nullptr before start().
    sip* stack() const { return transactions; }
    /// Has to know of each INVITE of ours.
    forked_answers& forks() { return answers; }
    /// nullptr: the system has none.
    dnsc* name_servers() const { return names; }

private:
    struct handlers;

    std::string listen_on(std::string const& ip, phone_settings const& settings);
    std::string listen_by_tls(sa const& address, phone_settings const& settings);

    sip* transactions = nullptr;
    sip_lsnr* screened = nullptr;
    sip_lsnr* requests = nullptr;
    sipsess_sock* sessions = nullptr;
    dnsc* names = nullptr;
    tls_context security;
    forked_answers answers;
    incoming_handler invited;
    incoming_handler updated;
    bool knows_timers = false;
};

}  // namespace fxsphone
