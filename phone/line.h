#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "phone/feature_codes.h"

namespace fxsphone {

/// What happens to a line: what its telephone does, and what the far ends of its calls do.
enum class happening {
    lifted,
    replaced,
    flashed,  ///< the hook was pressed briefly
    key,
    dialled,           ///< a whole number
    dialled_transfer,  ///< the same, to which the call on hold is to go
    feature_set,       ///< a code that changes something
    misdialled,
    timed_out,  ///< the state's own time is over
    invited,    ///< a call comes in
    far_rings,
    far_answers,
    far_busy,         ///< it refuses: 486, 600, 603
    far_fails,        ///< any other refusal, or no answer from the network
    far_ends,         ///< it hangs up, or takes its call back before it was answered
    referred,         ///< it asks us to call somebody else instead (REFER)
    transferred,      ///< it has reached whom it was to call instead of us
    transfer_failed,  ///< it has not
    other_answers,    ///< the call in the background is answered
    other_ends,       ///< the far end of the call that is held, waits or is joined does
    // What the telephone asks for while there are two calls, by a hook flash and a key.
    asked_drop_second,  ///< 0: end the one that is held, refuse the one that waits
    asked_drop_front,   ///< 1: end the one in front, go on with the other
    asked_swap,         ///< 2, or no key
    asked_join,         ///< 3: all three with each other
    asked_transfer,     ///< 4: the other two with each other, without this telephone
    handed_over,        ///< the same by replacing the receiver
};

/// What the line wants done, in this order. A leg is one of the two calls that a line can have, 0 or 1.
enum class order_kind {
    open,          ///< a media channel for the leg, on the line
    tone,          ///< play `sound` to the leg; tone::none: stop
    waiting_tone,  ///< the short tone that tells of a second call
    ring,
    stop_ringing,
    howl,
    invite,   ///< call `text`
    answer,   ///< the call that came in on the leg, and put it on the line
    refuse,   ///< it: nobody answers; it is sent on to `text` (302) unless that is empty (480)
    decline,  ///< it, with 486: whoever was called has chosen so
    hang_up,  ///< end the leg's call in whatever state it is, and close its channel
    hold,     ///< tell the far end, take the leg off the line
    resume,
    transfer,  ///< the leg's far end is to call `text`, or, when it is empty, to take over the call of the other leg
    follow,    ///< call, in the background, whom the far end has named
    connect,   ///< that call comes onto the line
    send_key,  ///< `text` to the far end
    remember,  ///< features() have changed: to be kept over a restart
};

/// Kinds of tone as the control protocol's playback command numbers them; it has no stutter, which is the dial tone,
/// interrupted at first: a message waits, or a code was understood.
enum class tone { none = 0, ringback = 1, busy = 2, congestion = 3, dial = 4, stutter = 5 };

/// What is to be done, and with which leg.
struct order {
    order_kind kind;
    int leg = 0;
    tone sound = tone::none;  ///< of order_kind::tone
    std::string text = {};    ///< an address "sip:user@host", or a key; see order_kind
    bool anonymous = false;   ///< invite: without the caller's number

    bool operator==(order const&) const = default;
};

/// What a hook flash does while there are two calls.
enum class flash_use {
    keys,        ///< a key says what: asked_drop_second and the following; without a key it swaps
    swap,        ///< it swaps at once
    conference,  ///< it joins the call that is held; the next one ends the call that came last
};

/// Times in ms. Where no source is named the default was chosen.
struct line_settings {
    int first_key_ms = 15'000;    ///< dial tone for so long (ITU-T E.183 leaves it to the operator: 10 to 20 s)
    int next_key_ms = 4'000;      ///< after the last key, where the plan allows a longer number
    int no_answer_ms = 180'000;   ///< proxies wait longer (timer C of RFC 3261 section 16.6)
    int tone_ms = 30'000;         ///< busy and congestion tone; then silence until the receiver is replaced
    int howl_ms = 0;              ///< so long after the tones the driver is told to howl; 0: never
    int flash_ms = 700;           ///< longest hook flash; 0: every on-hook is the end
    int waiting_tone_ms = 4'000;  ///< from one call-waiting tone to the next
    int transfer_ms = 60'000;     ///< a transfer that nobody has reported of by then has failed (as the REFER expires)
    bool transfer = true;         ///< by replacing the receiver while one call is held and the other rings or talks
    flash_use flash = flash_use::keys;
    int flash_key_ms = 1'500;  ///< so long after a flash its key may come (chosen: time to find the key, no more)
    bool call_waiting = true;
    int forward_ms = 20'000;  ///< a telephone rings for so long before its call is forwarded
    bool hide_number = false;
    std::string hot_line;  ///< called with nothing dialled; empty: none
    int hot_line_ms = 0;   ///< so long after lifting the receiver
    std::vector<feature_code> codes;
};

/// The telephone on one line as a state machine over times that the caller gives: no sockets, no clock of its own.
/// Calls and media belong to whoever carries out its orders.
class line {
public:
    enum class state {
        on_hook,
        ringing,       ///< a call comes in
        ringing_back,  ///< the receiver was replaced while a call was held: that call rings
        dialling,      ///< dial tone
        collecting,    ///< some keys were pressed, there may be more
        calling,       ///< whoever was dialled was called, and has said nothing yet
        alerting,      ///< their telephone rings
        talking,
        transferring,  ///< the others are being connected, the receiver is still off
        handing_over,  ///< the same with the receiver on its rest
        refused,       ///< busy or congestion tone
        left_off,      ///< silence, the receiver is still off
        howling,       ///< the driver makes the noise that calls for the receiver
    };
    /// The second call beside the one in front; joined: a conference of three; following: a call that the far end
    /// wants instead of itself, not answered yet.
    enum class second { none, held, waiting, joined, following };

    line(dial_plan numbers, line_settings const& wanted) : plan(std::move(numbers)), settings(wanted) {}

    /// The receiver was lifted. Like the following ones it returns what is to be done; `now_ms` never goes back.
    std::vector<order> lift(std::int64_t now_ms);
    /// Where a hook flash can mean something the end is known only when flash_ms have passed.
    std::vector<order> replace(std::int64_t now_ms);
    /// 0 to 9, *, #, A to D; others are ignored.
    std::vector<order> press(char which, std::int64_t now_ms);
    /// far_rings, far_answers, far_busy, far_fails, far_ends, transferred or transfer_failed, of the call on a leg;
    /// invited for one from free_leg(), referred for one that can_follow().
    std::vector<order> far(happening what, int leg, std::int64_t now_ms);
    /// Carries out what was due by then.
    std::vector<order> pass_time(std::int64_t now_ms);
    /// When pass_time() has to be called at the latest.
    std::optional<std::int64_t> due_ms() const;

    /// The leg that another incoming call may have; nullopt: the line is busy, or does not want to be disturbed.
    std::optional<int> free_leg() const;
    /// Where another incoming call is to go instead of this telephone; empty: nowhere.
    std::string forward_to() const;

    /// What its owner has chosen, to be kept where an order says so.
    line_features const& features() const { return chosen; }
    /// What was kept from an earlier run.
    void set_features(line_features const& known) { chosen = known; }
    /// For calling back.
    void called_by(std::string const& address) { chosen.last_caller = address; }
    /// The dial tone says so.
    void message_waits(bool does) { has_message = does; }
    /// The call on the leg may lead to somebody else now; the other leg is free for it.
    bool can_follow(int of_leg) const { return front == state::talking && companion == second::none && leg == of_leg; }
    /// All calls are gone and the media process knows nothing of the line any more. A telephone that is off-hook gets
    /// its dial tone again.
    std::vector<order> restart(std::int64_t now_ms);

    state now_in() const { return front; }
    bool has_messages() const { return has_message; }
    /// The telephone does, for a new call or one that was held.
    bool rings() const { return front == state::ringing || front == state::ringing_back; }
    second beside() const { return companion; }
    /// The leg of the call that now_in() tells of.
    int front_leg() const { return leg; }

private:
    enum class act : std::uint8_t;
    struct row;
    static std::vector<row> const table;
    enum timer { state_timer, hook_timer, flash_key_timer };

    void flash(std::int64_t now_ms, std::vector<order>& wanted);
    void flash_key(char which, std::int64_t now_ms, std::vector<order>& wanted);
    void put_down(std::int64_t now_ms, std::vector<order>& wanted);
    void due(timer which, std::int64_t at_ms, std::vector<order>& wanted);
    void happen(happening what, std::int64_t now_ms, std::vector<order>& wanted);
    void carry_out(act what, std::vector<order>& wanted);
    void dialled_so_far(std::int64_t now_ms, std::vector<order>& wanted);
    void dial(dialled_number const& number, std::int64_t now_ms, std::vector<order>& wanted);
    bool is_hot() const { return front == state::dialling && companion == second::none && !settings.hot_line.empty(); }
    int own_time_ms() const;

    dial_plan plan;
    line_settings settings;
    state front = state::on_hook;
    second companion = second::none;
    int leg = 0;  ///< of the call in front
    std::string keys;
    std::string called;  ///< whom, last
    bool anonymous = false;
    bool has_message = false;
    line_features chosen;
    char last_key = 0;
    std::array<std::int64_t, 3> dues = {};  ///< by timer; 0: it does not run
};

}  // namespace fxsphone
