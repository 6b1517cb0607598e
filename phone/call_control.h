#pragma once

#include "phone/line_tones.h"
#include "phone/media_channels.h"
#include "phone/sip_agent.h"
#include "phone/telephone.h"

namespace fxsphone {

/// Makes, takes and ends the calls of the legs, and keeps the record of each. Calls wait for their channel's ports:
/// invite() and answer() do what they are named for when port_known() says so.
class call_control {
public:
    /// `told` hears of the calls.
    call_control(phone_settings const& chosen, telephone_list& known, media_channels& opened, line_tones& played,
                 sip_agent& stack, call_owner& told)
        : settings(chosen), telephones(known), channels(opened), tones(played), agent(stack), owner(told) {}

    /// An INVITE that came in. nullptr: it was answered, nobody rings. Otherwise the leg that has the call now.
    leg* take(sip_msg const* request);
    /// Calls `to`, from the leg's channel.
    void invite(leg& one, std::string const& to, bool anonymous);
    /// Takes the call that came in.
    void answer(leg& one);
    /// The process has told the channel's port.
    void port_known(leg& one);

    /// The call that came in is to be tried at `to` (302); empty: nobody answers here (480).
    void send_on(leg const& one, std::string const& to);
    /// A key of the telephone to the far end, as the telephone's settings say.
    void send_key(leg const& one, char key);
    void hold(leg& one);
    void resume(leg& one);
    /// In whatever state it is; nothing when there is neither a call nor a channel.
    void end(leg& one);

    /// What a call is to say and take; the description outlives the call.
    std::unique_ptr<session_description> describe_media(leg const& one, bool over_ipv6) const;
    /// Where the leg's media are to be sent.
    static void place(leg const& one, session_description& words);
    std::unique_ptr<sip_call> make_call(leg const& one, session_description& words) const;
    /// Offer and answer have come to this.
    void media_agreed(leg& one, media_plan const& plan);

    /// When the call has been silent for too long; INT64_MAX: the far end need not send anything.
    std::int64_t silence_ends_ms(leg const& one) const;
    /// At that time: marks the call in its record, and ends it where the settings say so. true: it was ended.
    bool end_in_silence(leg& one);

    /// For the record of the call, which is complete, and written, with the far end's last word.
    void note(leg& one, happening what);
    /// A JSON line on standard output, once for each call.
    void write_record(leg& one);

private:
    static std::int64_t now() { return fxsmedia::monotonic_ms(); }
    void begin(leg& one, sip_call_direction direction, bool over_ipv6);
    void send_invite(telephone& from, leg& one);
    void send_answer(leg& one);
    bool sent_elsewhere(telephone const& called, sip_msg const* request);
    void refuse(sip_msg const* request, telephone const* called);

    phone_settings const& settings;
    telephone_list& telephones;
    media_channels& channels;
    line_tones& tones;
    sip_agent& agent;
    call_owner& owner;
};

}  // namespace fxsphone
