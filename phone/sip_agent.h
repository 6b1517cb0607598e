#pragma once

#include <functional>
#include <string>

struct sip;
struct sip_lsnr;
struct sip_msg;
struct sipsess_sock;
struct dnsc;

namespace fxsphone {

/// The SIP stack: transports, transactions, and the door at which calls come in. OPTIONS is answered (RFC 3261 section
/// 11.2), any other request outside of a call with 501.
class sip_agent {
public:
    using incoming_handler = std::function<void(sip_msg const*)>;

    ~sip_agent();

    /// Listens on UDP and TCP. An empty text, or what went wrong.
    std::string start(std::string const& ip, int port, bool trace, incoming_handler handler);
    /// Ends transactions in their own time, then libre's main loop.
    void stop();

    /// Whether an address, "sip:user@host:port", is one of those that it listens on.
    bool is_here(std::string const& uri) const;

    sipsess_sock* door() const { return sessions; }
    sip* stack() const { return transactions; }

private:
    struct handlers;

    sip* transactions = nullptr;
    sip_lsnr* requests = nullptr;
    sipsess_sock* sessions = nullptr;
    dnsc* names = nullptr;
    incoming_handler invited;
};

}  // namespace fxsphone
