#pragma once

#include <functional>
#include <string>

struct sip;
struct sip_lsnr;
struct sip_msg;
struct sipevent_sock;

namespace fxsphone {

/// Where NOTIFY and SUBSCRIBE come in (RFC 6665). Message summaries (RFC 3842) are taken unasked, too, as many
/// mailboxes send them.
class sip_events {
public:
    /// Messages wait for the telephone with that user part in its address, or none do.
    using summary_handler = std::function<void(std::string const& user, bool waiting)>;

    sip_events() = default;
    ~sip_events();
    sip_events(sip_events const&) = delete;

    /// An empty text, or what went wrong. The stack must live longer.
    std::string start(sip* stack, summary_handler handler);
    /// Ends all subscriptions.
    void stop();

    /// Where subscriptions begin; nullptr before start() and after stop().
    sipevent_sock* door() const { return events; }

private:
    static bool unasked(sip_msg const* request, void* arg);

    sip* requests_of = nullptr;
    summary_handler summary;
    sip_lsnr* summaries = nullptr;
    sipevent_sock* events = nullptr;
};

}  // namespace fxsphone
