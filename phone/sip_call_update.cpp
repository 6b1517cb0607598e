#include <fxsmedia/events.h>

#include "phone/libre.h"
#include "phone/sip_agent.h"
#include "phone/sip_call.h"

/// Refreshing a call, and being refreshed: UPDATE (RFC 3311), which libre does not know, on libre's dialog.
namespace fxsphone {

/// What libre calls; `arg` is the call.
struct sip_call::updates {
    static int write_contact(sip_transp transport, sa const* own, sa const*, mbuf* out, void* arg) {
        sip_contact own_contact;
        sip_contact_set(&own_contact, static_cast<sip_call const*>(arg)->asked.user.c_str(), own, transport);
        return mbuf_printf(out, "%H", sip_contact_print, &own_contact);
    }

    static void answered(int error, sip_msg const* response, void* arg) {
        sip_call& call = *static_cast<sip_call*>(arg);
        int const status = error != 0 || response == nullptr ? 408 : response->scode;
        if (status < 200)
            return;
        if (status < 300)
            call.timer.answered(response);
        else if (status == 408 || status == 481)  // RFC 4028 section 7.3
            call.over(happening::far_fails);
        else if (status == 422 && call.timer.raised(response))
            call.send_update();
        else if ((status == 401 || status == 407) && call.proofs.take(response, call.authentication).empty())
            call.send_update();
        else if (status == 405 || status == 501) {
            call.can_update = false;
            call.refresh();
        }
    }
};

void sip_call::refresh() {
    if (can_update)
        send_update();
    else
        hold(holds);  // an offer with nothing new in it
}

void sip_call::send_update() {
    if (session == nullptr || under_way != nullptr)
        return;
    std::string const headers = proofs.headers("UPDATE", contact) + timer.for_request();
    sip_drequestf(&under_way, agent->stack(), true, "UPDATE", sip_side(), 0, nullptr, updates::write_contact,
                  updates::answered, this, "%sContent-Length: 0\r\n\r\n", headers.c_str());
}

/// libre tells of the answer to an offer in a re-INVITE, but not of a refusal: then the offer counts as pending for as
/// long as a transaction may take (64 T1, RFC 3261 section 17.1.1.2).
bool sip_call::offer_is_pending() const {
    constexpr std::int64_t longest_ms = 32'000;
    bool const first = !incoming && !answered;
    return first || (offered_ms != 0 && fxsmedia::monotonic_ms() - offered_ms < longest_ms);
}

/// What cannot be taken now, or at all (RFC 3311 section 5.2); true: it was answered.
bool sip_call::refuses_update(sip_msg const* request, bool offers) {
    sip* const stack = agent->stack();
    if (session == nullptr || !sip_dialog_rseq_valid(sip_side(), request))
        sip_treply(nullptr, stack, request, 500, "Server Internal Error");
    else if (offers && offer_is_pending())
        sip_treply(nullptr, stack, request, 491, "Request Pending");
    else if (offers && !answered)
        sip_treplyf(nullptr, nullptr, stack, request, false, 500, "Server Internal Error",
                    "Retry-After: %u\r\nContent-Length: 0\r\n\r\n", rand_u16() % 11u);
    else if (timer.is_too_short(request))
        sip_treplyf(nullptr, nullptr, stack, request, false, 422, "Session Interval Too Small",
                    "Min-SE: %u\r\nContent-Length: 0\r\n\r\n", session_timer::least_s);
    else if (offers && !read(request, true))
        sip_treply(nullptr, stack, request, 488, "Not Acceptable Here");
    else
        return false;
    return true;
}

void sip_call::update(sip_msg const* request) {
    bool const offers = mbuf_get_left(request->mb) > 0;
    if (refuses_update(request, offers))
        return;
    sip_dialog_update(sip_side(), request);
    mbuf* const description = offers ? media.answer(holds) : nullptr;
    sip_contact own_contact;
    sip_contact_set(&own_contact, asked.user.c_str(), &request->dst, request->tp);
    sip_treplyf(nullptr, nullptr, agent->stack(), request, true, 200, "OK", "%H%s%sContent-Length: %zu\r\n\r\n%b",
                sip_contact_print, &own_contact, timer.accept(request).c_str(),
                offers ? "Content-Type: application/sdp\r\n" : "",
                description == nullptr ? std::size_t(0) : mbuf_get_left(description),
                description == nullptr ? nullptr : mbuf_buf(description),
                description == nullptr ? std::size_t(0) : mbuf_get_left(description));
    mem_deref(description);
    if (answered)
        timer.begin();
    if (offers)
        agreed();
}

}  // namespace fxsphone
