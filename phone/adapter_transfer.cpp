#include "phone/adapter.h"
#include "phone/referral.h"

/// Calls that go from one telephone to another: REFER both ways, and INVITE with Replaces.
namespace fxsphone {

/// An empty address: the far end of `one` is to take over the call of the other leg.
void adapter::transfer(telephone& which, leg& one, std::string const& to) {
    leg const& other = which.legs[1 - one.channel % 2];
    std::string const refer_to = !to.empty() ? to : other.call ? takeover_address(*other.call) : "";
    if (one.call)
        one.asked = std::make_unique<sent_referral>(events.door(), *one.call, which.settings.user, refer_to,
                                                    [this, &one](bool reached) { transfer_ended(one, reached); });
    if (!one.asked || !one.asked->sent())
        transfer_ended(one, false);
}

void adapter::transfer_ended(leg& one, bool reached) {
    int const number = one.channel % 2;
    happening const what = reached ? happening::transferred : happening::transfer_failed;
    tell_line(one.line, [&](line& state) { return state.far(what, number, now()); });
}

void adapter::referred(sip_call& call, sip_msg const* request) {
    leg* const one = leg_of(call);
    telephone* const which = one == nullptr ? nullptr : telephone_of(one->line);
    auto const target = read_referral(request);
    if (which == nullptr || !target || !which->state.can_follow(one->channel % 2)) {
        sip_treply(nullptr, agent.stack(), request, target ? 603 : 400, target ? "Decline" : "Bad Refer-To");
        return;
    }
    leg& next = which->legs[1 - one->channel % 2];
    next.follows = std::make_unique<taken_referral>(events.door(), call, which->settings.user, request);
    next.to_invite = target->address;
    next.invite_headers = target->headers;
    int const number = one->channel % 2;
    tell_line(one->line, [&](line& state) { return state.far(happening::referred, number, now()); });
}

/// Whoever has sent us to call `one` wants to know how it goes.
void adapter::tell_referrer(leg& one, happening what) {
    bool const fails = what == happening::far_busy || what == happening::far_fails || what == happening::far_ends;
    if (!one.follows || (!fails && what != happening::far_answers))
        return;
    int const code = one.call ? one.call->last_code() : 0;
    one.follows->conclude(!fails ? 200 : code >= 300 ? code : 503);
    one.follows.reset();
}

bool adapter::takes_over(sip_msg const* request) {
    auto const named = read_replaces(request);
    if (!named)
        return false;
    leg* const one = leg_of(named->dialog);
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
void adapter::take_over(leg& one, sip_msg const* request) {
    telephone& which = *telephone_of(one.line);
    auto media = describe_media(one, sa_af(&request->src) == AF_INET6);
    call_owner& owner = *this;
    auto call = std::make_unique<sip_call>(owner, *media, which.settings.login);
    media->set_port(one.rtp_port);
    if (!call->take(agent.door(), agent.stack(), request, which.settings.user))
        return;
    one.call = std::move(call);  // the old call ends with BYE
    one.media = std::move(media);
    one.record->far = one.call->far_address();
    if (!one.call->answer())
        heard(*one.call, happening::far_fails);
}

adapter::leg* adapter::leg_of(dialog_id const& dialog) {
    for (auto& one : telephones)
        for (leg& each : one->legs)
            if (each.call && each.record && each.call->id() == dialog)
                return &each;
    return nullptr;
}

}  // namespace fxsphone
