#include "phone/line_table.h"

namespace fxsphone {

namespace {

using enum line::state;
using enum line::second;
using enum happening;
using states = std::vector<line::state>;

states const off_hook = {dialling, collecting, calling, alerting, talking, refused, left_off};
states const before_answer = {calling, alerting};
states const without_call = {refused, left_off};
states const not_talking = {dialling, collecting, calling, alerting, refused, left_off};
states const pending = {transferring, handing_over};
states const any = {on_hook, ringing,      ringing_back, dialling, collecting, calling, alerting,
                    talking, transferring, handing_over, refused,  left_off,   howling};

}  // namespace

std::vector<line::row> const line::table = {
    // The receiver is on the hook.
    {{on_hook}, {none}, lifted, dialling, {}, {act::open, act::dial_tone}},
    {{on_hook}, {none}, invited, ringing, {}, {act::ring}},
    {{ringing}, {none}, lifted, talking, {}, {act::stop_ringing, act::answer}},
    {{ringing}, {none}, far_ends, on_hook, {}, {act::stop_ringing, act::hang_up}},
    {{ringing}, {none}, timed_out, on_hook, {}, {act::stop_ringing, act::refuse, act::hang_up}},
    {{ringing_back}, {none}, lifted, talking, {}, {act::stop_ringing, act::resume}},
    {{ringing_back}, {none}, far_ends, on_hook, {}, {act::stop_ringing, act::hang_up}},
    {{ringing_back}, {none}, timed_out, on_hook, {}, {act::stop_ringing, act::hang_up}},

    // A number is dialled and called.
    {{dialling}, {}, key, collecting, {}, {act::silence}},
    {{dialling}, {}, dialled, calling, {}, {act::silence, act::invite}},  // the hot line
    {{dialling}, {}, timed_out, refused, {}, {act::congestion_tone}},
    {{collecting}, {}, key, collecting, {}, {}},
    {{collecting}, {}, feature_set, dialling, {}, {act::remember, act::done_tone}},
    {{collecting}, {}, dialled, calling, {}, {act::invite}},
    {{collecting}, {}, misdialled, refused, {}, {act::congestion_tone}},
    {{collecting}, {held}, dialled_transfer, transferring, none, {act::hang_up, act::swap, act::transfer}},
    {{collecting}, {}, dialled_transfer, refused, {}, {act::congestion_tone}},
    {{calling}, {}, far_rings, alerting, {}, {act::ringback_tone}},
    {{alerting}, {}, key, {}, {}, {act::send_key}},
    {before_answer, {}, far_answers, talking, {}, {act::silence}},
    {before_answer, {}, far_busy, refused, {}, {act::busy_tone}},
    {before_answer, {}, far_fails, refused, {}, {act::congestion_tone}},
    {before_answer, {}, far_ends, refused, {}, {act::congestion_tone}},

    // A call.
    {{talking}, {joined}, key, {}, {}, {act::send_key, act::send_key_to_second}},
    {{talking}, {}, key, {}, {}, {act::send_key}},
    {{talking}, {following}, far_ends, alerting, none, {act::hang_up, act::swap, act::connect, act::ringback_tone}},
    {{talking}, {following}, far_fails, alerting, none, {act::hang_up, act::swap, act::connect, act::ringback_tone}},
    {{talking}, {joined}, far_ends, talking, none, {act::hang_up, act::swap}},
    {{talking}, {joined}, far_fails, talking, none, {act::hang_up, act::swap}},
    {{talking}, {}, far_ends, refused, {}, {act::busy_tone}},
    {{talking}, {}, far_fails, refused, {}, {act::congestion_tone}},
    {{talking}, {none}, invited, talking, waiting, {act::waiting_tone}},
    {{talking}, {waiting}, timed_out, talking, {}, {act::waiting_tone}},
    {{talking}, {none}, flashed, dialling, held, {act::hold, act::swap, act::open, act::dial_tone}},

    // Two calls.
    {{talking}, {waiting}, asked_swap, talking, held, {act::hold, act::swap, act::answer}},
    {{talking}, {held}, asked_swap, talking, {}, {act::hold, act::swap, act::resume}},
    {{talking}, {joined}, asked_swap, talking, held, {act::hold_second}},
    {{talking}, {held}, asked_join, talking, joined, {act::resume_second}},
    {off_hook, {waiting}, asked_drop_second, {}, none, {act::decline_second, act::hang_up_second}},
    {off_hook, {held, joined, following}, asked_drop_second, {}, none, {act::hang_up_second}},
    {{talking}, {joined}, asked_drop_front, talking, none, {act::hang_up, act::swap}},
    {off_hook, {held}, asked_drop_front, talking, none, {act::hang_up, act::swap, act::resume}},
    {off_hook, {waiting}, asked_drop_front, talking, none, {act::hang_up, act::swap, act::answer}},

    // One call is transferred to the other, or to who was called and has not answered yet.
    {{talking}, {held}, asked_transfer, transferring, {}, {act::hold, act::transfer_second}},
    {{talking}, {held}, handed_over, handing_over, {}, {act::hold, act::transfer_second}},
    {{talking}, {joined}, asked_transfer, transferring, held, {act::hold, act::hold_second, act::transfer_second}},
    {before_answer, {held}, asked_transfer, transferring, none, {act::hang_up, act::swap, act::transfer}},
    {before_answer, {held}, handed_over, handing_over, none, {act::hang_up, act::swap, act::transfer}},
    {{transferring},
     {held},
     transferred,
     dialling,
     none,
     {act::hang_up, act::hang_up_second, act::open, act::dial_tone}},
    {{transferring}, {none}, transferred, dialling, {}, {act::hang_up, act::open, act::dial_tone}},
    {{handing_over}, {held}, transferred, on_hook, none, {act::hang_up, act::hang_up_second}},
    {{handing_over}, {none}, transferred, on_hook, {}, {act::hang_up}},
    {{transferring}, {}, transfer_failed, talking, {}, {act::resume}},
    {{transferring}, {}, timed_out, talking, {}, {act::resume}},
    {{handing_over}, {held}, transfer_failed, ringing_back, none, {act::hang_up, act::swap, act::ring}},
    {{handing_over}, {held}, timed_out, ringing_back, none, {act::hang_up, act::swap, act::ring}},
    {{handing_over}, {none}, transfer_failed, ringing_back, {}, {act::ring}},
    {{handing_over}, {none}, timed_out, ringing_back, {}, {act::ring}},
    {pending, {held}, far_ends, {}, none, {act::hang_up, act::swap}},  // its call was taken over
    {{transferring}, {none}, far_ends, dialling, {}, {act::hang_up, act::open, act::dial_tone}},
    {{handing_over}, {none}, far_ends, on_hook, {}, {act::hang_up}},
    {{handing_over}, {held}, lifted, talking, {}, {act::swap, act::resume}},
    {{handing_over}, {none}, lifted, talking, {}, {act::resume}},
    {{transferring}, {}, replaced, handing_over, {}, {}},

    // The far end names somebody else to call.
    {{talking}, {none}, referred, talking, following, {act::follow}},
    {{talking}, {following}, other_answers, talking, none, {act::hang_up, act::swap, act::connect}},

    // No call in front any more, or none yet.
    {{refused}, {}, timed_out, left_off, {}, {act::silence}},
    {{left_off}, {}, timed_out, howling, {}, {act::howl}},
    {{howling}, {held}, replaced, ringing_back, none, {act::stop_ringing, act::hang_up, act::swap, act::ring}},
    {{howling}, {waiting}, replaced, ringing, none, {act::stop_ringing, act::hang_up, act::swap, act::ring}},
    {{howling}, {none}, replaced, on_hook, {}, {act::stop_ringing, act::hang_up}},
    {not_talking, {held}, flashed, talking, none, {act::hang_up, act::swap, act::resume}},
    {not_talking, {held}, asked_swap, talking, none, {act::hang_up, act::swap, act::resume}},
    {without_call, {waiting}, flashed, talking, none, {act::hang_up, act::swap, act::answer}},
    {without_call, {waiting}, asked_swap, talking, none, {act::hang_up, act::swap, act::answer}},
    {without_call, {none}, flashed, dialling, {}, {act::hang_up, act::open, act::dial_tone}},

    // The second call goes away, the receiver is replaced.
    {any, {held, waiting, joined, following}, other_ends, {}, none, {act::hang_up_second}},
    {off_hook, {waiting}, replaced, ringing, none, {act::hang_up, act::swap, act::ring}},
    {off_hook, {held}, replaced, ringing_back, none, {act::hang_up, act::swap, act::ring}},
    {off_hook, {joined, following}, replaced, on_hook, none, {act::hang_up, act::hang_up_second}},
    {off_hook, {none}, replaced, on_hook, {}, {act::hang_up}},
};

}  // namespace fxsphone
