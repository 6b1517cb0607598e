#pragma once

#include <cstdint>
#include <string>

#include "phone/digest.h"
#include "phone/line.h"
#include "phone/session_description.h"
#include "phone/session_timer.h"
#include "phone/settings.h"

struct sip_msg;
struct sip_dialog;
struct sipsess;

namespace fxsphone {

class sip_agent;
class sip_call;

/// Hears what becomes of a call; may destroy it meanwhile.
class call_owner {
public:
    /// far_rings, far_answers, far_busy, far_fails or far_ends; the last three are a call's last word.
    virtual void heard(sip_call& call, happening what) = 0;
    /// Media go elsewhere or are coded otherwise from now on: early media, an answer, the far end's new offer.
    virtual void media_agreed(sip_call& call, media_plan const& plan) = 0;
    /// The far end wants us to call somebody else (REFER, RFC 3515). To be answered.
    virtual void referred(sip_call& call, sip_msg const* request) = 0;

protected:
    ~call_owner() = default;
};

/// What tells a dialog from all others (RFC 3261 section 12), seen from this end.
struct dialog_id {
    std::string call_id, local_tag, remote_tag;

    bool operator==(dialog_id const&) const = default;
};

/// A call that is to be made.
struct invitation {
    std::string to;         ///< an address as "sip:user@host"
    std::string from;       ///< likewise
    std::string from_name;  ///< empty: none
    std::string user;       ///< of our own contact address
    std::string route;      ///< address of the first hop; empty: `to`
    std::string headers;    ///< further ones, each with its line end
};

/// One SIP session (RFC 3261) with its offer and answer. Destroying it ends the call: CANCEL, BYE or a refusal,
/// whatever fits.
class sip_call {
public:
    /// `login` answers challenges to the call's requests; it lives as long as the SIP stack. `expires_s`: the session
    /// timer to ask for, 0: none.
    sip_call(call_owner& told, session_description& words, credentials const& login, int expires_s);
    ~sip_call();
    sip_call(sip_call const&) = delete;

    /// Calls; once, and not after take(). `by` lives longer. false: it is no address, or there is no way to it.
    bool invite(sip_agent& by, invitation const& wanted);
    /// Takes an INVITE that came in and says that the telephone rings. false: refused, with 415 for a body that
    /// is no SDP, 422 for a session timer that is too short, and 488 for an offer without anything that we can code.
    bool take(sip_agent& by, sip_msg const* request, std::string const& user);
    /// Accepts it; set_port() of the description comes before. On hold the far end may not send. false: it is over.
    bool answer(bool on_hold = false);
    /// The call that came in gets this status, from 300 on, and is over without a word to the owner.
    void refuse(int code, char const* reason);
    /// Likewise: it is to be tried at another address (302).
    void redirect(std::string const& to);
    /// Sends a key as INFO with application/dtmf-relay; nothing before the call was answered.
    void send_info(char key);
    /// The far end's UPDATE (RFC 3311), which is answered: it refreshes the session, or makes an offer, refused with
    /// 491 while one of ours has no answer.
    void update(sip_msg const* request);
    /// A new offer: the far end may not send any more, or may again. Nothing when another offer is under way.
    void hold(bool on);

    std::string const& far_address() const { return far; }  ///< as it stands in From or was called
    std::string const& far_number() const { return number; }
    std::string const& far_name() const { return name; }
    /// Where its end of the dialog is; empty: not known yet.
    std::string const& far_contact() const { return contact; }
    int alert_pattern() const { return alert; }     ///< N of the caller's Alert-Info "Bellcore-drN", otherwise 1
    dialog_id const& id() const { return dialog; }  ///< complete once the far end has answered or rung
    credentials const& login() const { return authentication; }
    bool established() const { return answered; }
    sip_dialog* sip_side() const;           ///< nullptr when the call is over
    int last_code() const { return code; }  ///< of the last response; 0: none

private:
    struct handlers;
    struct updates;

    bool connect();
    bool tries_again(int error, sip_msg const* response);
    void refresh();
    void send_update();
    bool refuses_update(sip_msg const* request, bool offers);
    bool offer_is_pending() const;
    void hang_up();
    void note_dialog(sip_msg const* message);
    bool read(sip_msg const* message, bool is_offer);
    void agreed();
    void over(happening what);

    call_owner& owner;
    session_description& media;
    credentials const& authentication;
    sipsess* session = nullptr;
    sip_agent* agent = nullptr;
    invitation asked;  ///< of an outgoing call; of an incoming one only `user`
    session_timer timer;
    std::string timer_headers;                ///< for the answer to the far end's INVITE
    digest_answers proofs;                    ///< for requests that libre does not answer challenges to
    struct sip_request* under_way = nullptr;  ///< an UPDATE
    std::string far, number, name, contact;
    dialog_id dialog;
    std::int64_t offered_ms = 0;  ///< when a later offer of ours was made that has no answer yet; 0: none
    int code = 0;
    int alert = 1;
    bool answered = false;
    bool incoming = false;
    bool offered = false;     ///< the far end's INVITE had a description
    bool holds = false;       ///< the far end may not send
    bool can_update = false;  ///< the far end knows UPDATE
};

}  // namespace fxsphone
