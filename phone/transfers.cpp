#include "phone/transfers.h"

#include "phone/referral.h"

namespace fxsphone {

void transfers::ask(leg& one, std::string const& to) {
    telephone& which = telephones.of(one);
    leg const& other = which.beside(one);
    std::string const refer_to = !to.empty() ? to : other.call ? takeover_address(*other.call) : "";
    if (one.call)
        one.asked = std::make_unique<sent_referral>(
            events.door(), *one.call, which.settings.user, refer_to, [this, &one](bool reached) {
                outcome(one, reached ? happening::transferred : happening::transfer_failed);
            });
    if (!one.asked || !one.asked->sent())
        outcome(one, happening::transfer_failed);
}

void transfers::referred(sip_call& call, sip_msg const* request) {
    leg* const one = telephones.of_call(call);
    auto const target = read_referral(request);
    if (one == nullptr || !target || !telephones.of(*one).state.can_follow(one->number())) {
        sip_treply(nullptr, agent.stack(), request, target ? 603 : 400, target ? "Decline" : "Bad Refer-To");
        return;
    }
    telephone& which = telephones.of(*one);
    leg& next = which.beside(*one);
    next.follows = std::make_unique<taken_referral>(events.door(), call, which.settings.user, request);
    next.to_invite = target->address;
    next.invite_headers = target->headers;
    outcome(*one, happening::referred);
}

void transfers::tell_referrer(leg& one, happening what) {
    bool const fails = what == happening::far_busy || what == happening::far_fails || what == happening::far_ends;
    if (!one.follows || (!fails && what != happening::far_answers))
        return;
    int const code = one.call ? one.call->last_code() : 0;
    one.follows->conclude(!fails ? 200 : code >= 300 ? code : 503);
    one.follows.reset();
}

bool transfers::takes_over(sip_msg const* request) {
    auto const named = read_replaces(request);
    if (!named)
        return false;
    leg* const one = telephones.of_dialog(named->dialog);
    // An INVITE cannot take over a call that only rings here (RFC 3891 section 3).
    if (one == nullptr || one->record->answered_ms == 0)
        sip_treply(nullptr, agent.stack(), request, 481, "Call Does Not Exist");
    else if (named->early_only)
        sip_treply(nullptr, agent.stack(), request, 486, "Busy Here");
    else
        take_over(*one, request);
    return true;
}

/// The new call goes on where the old one was, on the same channel.
void transfers::take_over(leg& one, sip_msg const* request) {
    telephone_settings const& own = telephones.of(one).settings;
    auto media = calls.describe_media(one, sa_af(&request->src) == AF_INET6);
    auto call = calls.make_call(one, *media);
    calls.place(one, *media);
    if (!call->take(agent, request, own.user))
        return;
    one.call = std::move(call);  // the old call ends with BYE
    one.media = std::move(media);
    one.record->far = one.call->far_address();
    if (!one.call->answer(one.held))
        owner.heard(*one.call, happening::far_fails);
}

}  // namespace fxsphone
