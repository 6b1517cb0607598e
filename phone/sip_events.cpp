#include "phone/sip_events.h"

#include "phone/libre.h"
#include "phone/mailbox.h"

#include <cstring>
#include <utility>

namespace fxsphone {

sip_events::~sip_events() {
    stop();
}

/// One that belongs to a subscription has a tag in To.
bool sip_events::unasked(sip_msg const* request, void* arg) {
    auto const* const self = static_cast<sip_events*>(arg);
    sip_hdr const* const event = sip_msg_hdr(request, SIP_HDR_EVENT);
    if (pl_strcmp(&request->met, "NOTIFY") != 0 || request->to.tag.l != 0 || event == nullptr ||
        pl_strcasecmp(&event->val, "message-summary") != 0)
        return false;
    if (auto const waiting = messages_wait(request))
        self->summary(text_of(request->uri.user), *waiting);
    sip_treply(nullptr, self->requests_of, request, 200, "OK");
    return true;
}

std::string sip_events::start(sip* stack, summary_handler handler) {
    constexpr std::uint32_t buckets = 32;
    requests_of = stack;
    summary = std::move(handler);
    // Before the subscriptions, which would refuse what belongs to none of them.
    int failed = sip_listen(&summaries, stack, true, unasked, this);
    failed = failed != 0 ? failed : sipevent_listen(&events, stack, buckets, buckets, nullptr, nullptr);
    return failed == 0 ? "" : std::strerror(failed);
}

void sip_events::stop() {
    summaries = static_cast<sip_lsnr*>(mem_deref(summaries));
    events = static_cast<sipevent_sock*>(mem_deref(events));
}

}  // namespace fxsphone
