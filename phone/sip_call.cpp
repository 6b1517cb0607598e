#include "phone/sip_call.h"

#include <fxsmedia/events.h>

#include "phone/registration.h"
#include "phone/sip_agent.h"
#include "phone/sip_methods.h"

#include <utility>

namespace fxsphone {

namespace {

constexpr char const* sdp_type = "application/sdp";

bool is_sdp(sip_msg const* message) {
    return msg_ctype_cmp(&message->ctyp, "application", "sdp");
}

/// 486, 600 and 603 mean that nobody there wants to answer (RFC 3261 sections 21.4.24, 21.6.1, 21.6.2).
happening refusal(int code) {
    return code == 486 || code == 600 || code == 603 ? happening::far_busy : happening::far_fails;
}

/// Many proxies name a way of ringing so, within an address or without one.
int alert_of(sip_msg const* request) {
    sip_hdr const* const header = sip_msg_hdr(request, SIP_HDR_ALERT_INFO);
    pl number;
    return header != nullptr && re_regex(header->val.p, header->val.l, "bellcore-dr[1-5]1", &number) == 0
               ? static_cast<int>(pl_u32(&number))
               : 1;
}

}  // namespace

/// What libre calls; `arg` is the call.
struct sip_call::handlers {
    static sip_call& of(void* arg) { return *static_cast<sip_call*>(arg); }

    /// The far end's new offer, or its wish for ours.
    static int offer(mbuf** description, sip_msg const* message, void* arg) {
        sip_call& call = of(arg);
        bool const has_offer = mbuf_get_left(message->mb) > 0;
        if (has_offer && !call.read(message, true))
            return EPROTO;
        *description = has_offer ? call.media.answer(call.holds) : call.media.offer(call.holds);
        call.offered_ms = has_offer ? 0 : fxsmedia::monotonic_ms();
        if (has_offer)
            call.agreed();
        if (call.answered)
            call.timer.take_over();
        return *description == nullptr ? ENOMEM : 0;
    }
    static int answer(sip_msg const* message, void* arg) {
        sip_call& call = of(arg);
        call.offered_ms = 0;
        // Early media has brought it already when the final response has none.
        if (mbuf_get_left(message->mb) > 0 && !call.read(message, false))
            return EPROTO;
        if (!call.media.plan())
            return EPROTO;
        call.agreed();
        return 0;
    }
    static void progress(sip_msg const* message, void* arg) {
        sip_call& call = of(arg);
        call.code = message->scode;
        call.note_dialog(message);
        if (mbuf_get_left(message->mb) > 0 && call.read(message, false))
            call.agreed();
        if (message->scode == 180 || message->scode == 183)
            call.owner.heard(call, happening::far_rings);
    }
    static void established(sip_msg const* message, void* arg) {
        sip_call& call = of(arg);
        if (!call.incoming) {
            call.code = message->scode;
            call.timer.answered(message);
        }
        call.note_dialog(message);
        if (!std::exchange(call.answered, true))
            call.owner.heard(call, happening::far_answers);
    }
    /// Keys are taken, though a line has no way to hear them; other information is not for us.
    static void informed(sip* stack, sip_msg const* request, void*) {
        bool const key = msg_ctype_cmp(&request->ctyp, "application", "dtmf-relay") ||
                         msg_ctype_cmp(&request->ctyp, "application", "dtmf");
        sip_treply(nullptr, stack, request, key ? 200 : 415, key ? "OK" : "Unsupported Media Type");
    }
    static void referred(sip*, sip_msg const* request, void* arg) { of(arg).owner.referred(of(arg), request); }
    static void closed(int error, sip_msg const* message, void* arg) {
        sip_call& call = of(arg);
        if (message != nullptr && !message->req && call.tries_again(error, message))
            return;
        bool const ended = call.answered || call.incoming;
        if (message != nullptr && !message->req)
            call.code = message->scode;
        call.over(ended ? happening::far_ends : message == nullptr ? happening::far_fails : refusal(call.code));
    }
};

sip_call::sip_call(call_owner& told, session_description& words, credentials const& login, int expires_s)
    : owner(told),
      media(words),
      authentication(login),
      timer(
          static_cast<std::uint32_t>(expires_s), [this] { refresh(); }, [this] { over(happening::far_fails); }) {}

sip_call::~sip_call() {
    hang_up();
}

void sip_call::hang_up() {
    under_way = static_cast<struct sip_request*>(mem_deref(under_way));
    if (session != nullptr && answered && !proofs.empty())
        sipsess_set_close_headers(session, "%s", proofs.headers("BYE", contact).c_str());
    session = static_cast<sipsess*>(mem_deref(session));
}

bool sip_call::invite(sip_agent& by, invitation const& wanted) {
    agent = &by;
    asked = wanted;
    far = number = asked.to;
    return connect();
}

bool sip_call::connect() {
    char const* routes[] = {asked.route.c_str()};
    std::string const headers = allowed_methods + std::string("Supported: replaces\r\n") + timer.for_request() +
                                proofs.headers("INVITE", asked.to) + asked.headers;
    mbuf* const offer = media.offer();
    int const failed = sipsess_connect(
        &session, agent->door(), asked.to.c_str(), asked.from_name.empty() ? nullptr : asked.from_name.c_str(),
        asked.from.c_str(), asked.user.c_str(), routes, asked.route.empty() ? 0 : 1, sdp_type, offer, answer_challenge,
        const_cast<credentials*>(&authentication), false, handlers::offer, handlers::answer, handlers::progress,
        handlers::established, handlers::informed, handlers::referred, handlers::closed, this, "%s", headers.c_str());
    mem_deref(offer);
    if (failed == 0)
        agent->forks().expect(sip_side(), authentication);
    return failed == 0;
}

/// With what a refusal of our INVITE asks for: a longer session timer, or a proof that libre cannot give (ENOSYS).
bool sip_call::tries_again(int error, sip_msg const* response) {
    bool const unknown_digest = error == ENOSYS && (response->scode == 401 || response->scode == 407);
    if (incoming || answered ||
        !((response->scode == 422 && timer.raised(response)) ||
          (unknown_digest && proofs.take(response, authentication).empty())))
        return false;
    session = static_cast<sipsess*>(mem_deref(session));
    return connect();
}

bool sip_call::take(sip_agent& by, sip_msg const* request, std::string const& user) {
    agent = &by;
    sip* const stack = agent->stack();
    asked.user = user;
    incoming = true;
    far = text_of(request->from.auri);
    number = text_of(request->from.uri.user);
    name = text_of(request->from.dname);
    alert = alert_of(request);
    note_dialog(request);
    offered = mbuf_get_left(request->mb) > 0;
    if (offered && !is_sdp(request)) {
        sip_treplyf(nullptr, nullptr, stack, request, false, 415, "Unsupported Media Type",
                    "Accept: %s\r\nContent-Length: 0\r\n\r\n", sdp_type);
        return false;
    }
    if (timer.is_too_short(request)) {
        sip_treplyf(nullptr, nullptr, stack, request, false, 422, "Session Interval Too Small",
                    "Min-SE: %u\r\nContent-Length: 0\r\n\r\n", session_timer::least_s);
        return false;
    }
    if (offered && !read(request, true)) {
        sip_treply(nullptr, stack, request, 488, "Not Acceptable Here");
        return false;
    }
    timer_headers = timer.accept(request);
    return sipsess_accept(&session, agent->door(), request, 180, "Ringing", user.c_str(), sdp_type, nullptr,
                          answer_challenge, const_cast<credentials*>(&authentication), false, handlers::offer,
                          handlers::answer, handlers::established, handlers::informed, handlers::referred,
                          handlers::closed, this, nullptr) == 0;
}

bool sip_call::answer(bool on_hold) {
    holds = on_hold;
    mbuf* const description = offered ? media.answer(on_hold) : media.offer(on_hold);
    bool const sent =
        session != nullptr && description != nullptr &&
        sipsess_answer(session, 200, "OK", description, "%s%s", allowed_methods, timer_headers.c_str()) == 0;
    mem_deref(description);
    offered_ms = offered ? 0 : fxsmedia::monotonic_ms();
    code = 200;
    if (sent)
        timer.begin();
    if (sent && offered)
        agreed();
    return sent;
}

void sip_call::refuse(int with_code, char const* reason) {
    code = with_code;
    if (session != nullptr)
        sipsess_reject(session, static_cast<std::uint16_t>(with_code), reason, nullptr);
    session = static_cast<sipsess*>(mem_deref(session));
}

void sip_call::redirect(std::string const& to) {
    code = 302;
    if (session != nullptr)
        sipsess_reject(session, 302, "Moved Temporarily", "Contact: <%s>\r\n", to.c_str());
    session = static_cast<sipsess*>(mem_deref(session));
}

void sip_call::send_info(char key) {
    mbuf* const body = mbuf_alloc(64);
    if (body == nullptr || session == nullptr)
        return;
    mbuf_printf(body, "Signal=%c\r\nDuration=160\r\n", key);
    mbuf_set_pos(body, 0);
    sipsess_info(
        session, "application/dtmf-relay", body, [](int, sip_msg const*, void*) {}, nullptr);
    mem_deref(body);
}

void sip_call::hold(bool on) {
    holds = on;
    if (session == nullptr)
        return;
    mbuf* const offer = media.offer(on);
    if (sipsess_modify(session, offer) == 0)
        offered_ms = fxsmedia::monotonic_ms();
    mem_deref(offer);
}

sip_dialog* sip_call::sip_side() const {
    return session == nullptr ? nullptr : sipsess_dialog(session);
}

/// A request tells of the caller's end in From, a response of the called one's in To.
void sip_call::note_dialog(sip_msg const* message) {
    can_update = can_update || sip_msg_hdr_has_value(message, SIP_HDR_ALLOW, "UPDATE");
    std::string const from = text_of(message->from.tag);
    std::string const to = text_of(message->to.tag);
    dialog = {text_of(message->callid), message->req ? to : from, message->req ? from : to};
    sip_addr address;
    sip_hdr const* const header = sip_msg_hdr(message, SIP_HDR_CONTACT);
    if (header != nullptr && sip_addr_decode(&address, &header->val) == 0)
        contact = text_of(address.auri);
}

bool sip_call::read(sip_msg const* message, bool is_offer) {
    if (!is_sdp(message))
        return false;
    return is_offer ? media.read_offer(message->mb) : media.read_answer(message->mb);
}

void sip_call::agreed() {
    if (auto const plan = media.plan())
        owner.media_agreed(*this, *plan);
}

void sip_call::over(happening what) {
    hang_up();
    owner.heard(*this, what);  // the last thing: it may destroy the call
}

}  // namespace fxsphone
