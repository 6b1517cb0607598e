#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "phone/libre.h"

namespace fxsphone {

/// When a call is to be refreshed, and when it is over because nobody has (RFC 4028). What is sent for that is the
/// call's affair.
class session_timer {
public:
    /// The least interval that is taken (RFC 4028 section 4).
    static constexpr std::uint32_t least_s = 90;

    /// `expires_s`: the interval to ask for; 0: no timers, all functions say so. One of the two is called in its time,
    /// `refresh` again and again; both may destroy the timer.
    session_timer(std::uint32_t expires_s, std::function<void()> refresh, std::function<void()> expired);
    ~session_timer();
    session_timer(session_timer const&) = delete;

    /// Header fields for an INVITE or UPDATE of ours, each with its line end.
    std::string for_request() const;
    /// A 2xx to it. Without Session-Expires nothing changes.
    void answered(sip_msg const* response);
    /// A 422 to it. false: there is no use in trying again.
    bool raised(sip_msg const* response);

    /// An INVITE or UPDATE of the far end that wants less than least_s, and can be told so (422).
    bool is_too_short(sip_msg const* request) const;
    /// Header fields for the 2xx to it; begin() when that is sent.
    std::string accept(sip_msg const* request);
    /// The interval begins anew; nothing without one.
    void begin();

    /// The far end has made an offer, and libre's answer to that has no word of timers: from now on we refresh.
    void take_over();

private:
    std::uint32_t wanted_s;
    std::function<void()> refresh;
    std::function<void()> expired;
    std::uint32_t interval_s = 0;  ///< 0: no timer was agreed on
    bool refreshes = false;        ///< we do
    tmr due = {};
};

}  // namespace fxsphone
