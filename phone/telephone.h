#pragma once

#include <fxsmedia/values.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "phone/call_media.h"
#include "phone/call_record.h"
#include "phone/line.h"
#include "phone/referral.h"
#include "phone/session_description.h"
#include "phone/settings.h"
#include "phone/sip_call.h"

namespace fxsphone {

/// One of the two calls that a telephone can have, with its channel in the media process: line N has the channels 2N
/// and 2N+1. What is known of a call belongs to whoever is named; everybody reads it.
struct leg {
    int channel = 0;
    int line = 0;

    // media_channels
    bool on_process = false;  ///< its channel was opened and not ended yet
    int rtp_port = 0;         ///< 0: the process has not told yet
    int asked_rtp_port = 0;   ///< while a STUN server is asked how it looks from outside; else 0
    std::optional<fxsmedia::endpoint> outside_rtp, outside_rtcp;  ///< what it said
    std::uint8_t ssrc[4] = {};                                    ///< kept through the call's changes
    std::optional<srtp_plan> srtp;                                ///< the keys that its channel has
    std::optional<fxsmedia::endpoint> offered;                    ///< where the far end wants RTP
    std::optional<fxsmedia::endpoint> source;  ///< where it comes from, when that was a private address

    // call_control
    std::string to_invite;  ///< once the port is known
    std::string invite_headers;
    bool anonymous = false;
    bool to_answer = false;  ///< likewise
    std::unique_ptr<session_description> media;
    std::unique_ptr<sip_call> call;
    std::optional<call_record> record;
    call_media heard;
    bool held = false;                 ///< by this telephone
    std::int64_t speaks_since_ms = 0;  ///< neither end holds the call; 0: one does

    // transfers
    std::unique_ptr<sent_referral> asked;     ///< its far end is to call somebody else
    std::unique_ptr<taken_referral> follows;  ///< the other leg's far end has named whom this one calls

    /// As the line counts its legs: 0 or 1.
    int number() const { return channel % 2; }
};

/// One line's telephone: what is configured, its state machine, its calls.
struct telephone {
    telephone(telephone_settings const& chosen, line idle) : settings(chosen), state(std::move(idle)) {}

    leg& beside(leg const& one) { return legs[1 - one.number()]; }

    telephone_settings settings;
    line state;
    leg legs[2];
    std::int64_t lifted_ms = 0;        ///< until its dial tone is heard; 0: it is, or the receiver is on its rest
    std::int64_t lift_to_tone_ms = 0;  ///< how long that took, the last time
    std::int64_t last_key_ms = 0;      ///< when a key was pressed last; 0: never
};

/// All telephones of the device.
class telephone_list {
public:
    /// What their owners have chosen by codes is read from the state file of the settings.
    explicit telephone_list(phone_settings const& chosen);

    auto begin() const { return all.begin(); }
    auto end() const { return all.end(); }

    /// These return nullptr when there is none.
    telephone* of_line(int number) const;
    /// By the user part of its address.
    telephone* of_user(std::string const& user) const;
    leg* of_channel(int channel) const;
    leg* of_call(sip_call const& call) const;
    leg* of_dialog(dialog_id const& dialog) const;
    /// The telephone that a leg belongs to.
    telephone& of(leg const& one) const { return *of_line(one.line); }

    /// Writes what was chosen by codes; that it can't is said on standard error.
    void keep_features() const;

private:
    std::string state_file;
    std::vector<std::unique_ptr<telephone>> all;
};

}  // namespace fxsphone
