#pragma once

#include "phone/call_control.h"
#include "phone/sip_events.h"

namespace fxsphone {

/// Calls that go from one telephone to another: REFER both ways (RFC 3515), and INVITE with Replaces (RFC 3891).
class transfers {
public:
    /// What becomes of a leg's transfer: referred, transferred, transfer_failed.
    using outcome_handler = std::function<void(leg& of, happening what)>;

    transfers(telephone_list& known, call_control& control, sip_agent& stack, sip_events& door, call_owner& told,
              outcome_handler tell)
        : telephones(known), calls(control), agent(stack), events(door), owner(told), outcome(std::move(tell)) {}

    /// The far end of `one` is to call `to`, or, when that is empty, to take over the call of the other leg.
    void ask(leg& one, std::string const& to);

    /// The far end of `call` wants us to call somebody else: taken, or answered with a refusal.
    void referred(sip_call& call, sip_msg const* request);
    /// Whoever has sent us to call `one` wants to know how it goes.
    void tell_referrer(leg& one, happening what);

    /// false: the INVITE is to replace no call. Otherwise it has got its answer, and perhaps the call.
    bool takes_over(sip_msg const* request);

private:
    void take_over(leg& one, sip_msg const* request);

    telephone_list& telephones;
    call_control& calls;
    sip_agent& agent;
    sip_events& events;
    call_owner& owner;
    outcome_handler outcome;
};

}  // namespace fxsphone
