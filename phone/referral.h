#pragma once

#include <functional>
#include <optional>
#include <string>

#include "phone/libre.h"
#include "phone/sip_call.h"

namespace fxsphone {

/// What a REFER wants (RFC 3515): whom to call, and with which further headers (Replaces, Referred-By: RFC 3891, 3892).
struct referral_target {
    std::string address;  ///< "sip:user@host"
    std::string headers;  ///< each with its line end
};

/// nullopt: there is not exactly one Refer-To with a SIP address in it.
std::optional<referral_target> read_referral(sip_msg const* request);

/// The call that an INVITE is to replace (RFC 3891), as this end of it knows it.
struct replaced_call {
    dialog_id dialog;
    bool early_only = false;  ///< only while it rings (RFC 3891 section 3)
};

/// nullopt: the INVITE has no Replaces.
std::optional<replaced_call> read_replaces(sip_msg const* request);

/// The address to refer to so that `call` is taken over by whoever calls it; empty: its far end is not known yet.
std::string takeover_address(sip_call const& call);

/// A REFER of ours within a call, until the far end has told how it went.
class sent_referral {
public:
    /// Whether the far end has reached whom it was to call.
    using outcome_handler = std::function<void(bool reached)>;

    /// `told` hears the outcome once, never from within this constructor; it may destroy the referral.
    sent_referral(sipevent_sock* events, sip_call const& call, std::string const& user, std::string const& refer_to,
                  outcome_handler told);
    ~sent_referral();
    sent_referral(sent_referral const&) = delete;

    /// false: it could not be sent, nothing will be heard.
    bool sent() const { return subscription != nullptr; }

private:
    struct handlers;

    void conclude(bool has_reached);

    outcome_handler outcome;  ///< empty once it was called
    bool reached = false;
    tmr soon = {};
    sipsub* subscription = nullptr;
};

/// A REFER of the far end that we carry out; it is told how that goes. One that is destroyed before its end was told
/// tells 487.
class taken_referral {
public:
    /// Accepts the request with 202 and says that it is being tried.
    taken_referral(sipevent_sock* events, sip_call const& call, std::string const& user, sip_msg const* request);
    ~taken_referral();
    taken_referral(taken_referral const&) = delete;

    /// The last word: 200, or why whom it named could not be reached.
    void conclude(int code);

private:
    sipnot* notifier = nullptr;
};

}  // namespace fxsphone
