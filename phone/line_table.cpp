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
states const any = {on_hook, ringing,  ringing_back, dialling, collecting,
                    calling, alerting, talking,      refused,  left_off};

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
    {{dialling}, {}, timed_out, refused, {}, {act::congestion_tone}},
    {{collecting}, {}, key, collecting, {}, {}},
    {{collecting}, {}, dialled, calling, {}, {act::invite}},
    {{collecting}, {}, misdialled, refused, {}, {act::congestion_tone}},
    {{calling}, {}, far_rings, alerting, {}, {act::ringback_tone}},
    {{alerting}, {}, key, {}, {}, {act::send_key}},
    {before_answer, {}, far_answers, talking, {}, {act::silence}},
    {before_answer, {}, far_busy, refused, {}, {act::busy_tone}},
    {before_answer, {}, far_fails, refused, {}, {act::congestion_tone}},
    {before_answer, {}, far_ends, refused, {}, {act::congestion_tone}},

    // A call.
    {{talking}, {joined}, key, {}, {}, {act::send_key, act::send_key_to_second}},
    {{talking}, {}, key, {}, {}, {act::send_key}},
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
    {off_hook, {held, joined}, asked_drop_second, {}, none, {act::hang_up_second}},
    {{talking}, {joined}, asked_drop_front, talking, none, {act::hang_up, act::swap}},
    {off_hook, {held}, asked_drop_front, talking, none, {act::hang_up, act::swap, act::resume}},
    {off_hook, {waiting}, asked_drop_front, talking, none, {act::hang_up, act::swap, act::answer}},

    // No call in front any more, or none yet.
    {{refused}, {}, timed_out, left_off, {}, {act::silence}},
    {not_talking, {held}, flashed, talking, none, {act::hang_up, act::swap, act::resume}},
    {not_talking, {held}, asked_swap, talking, none, {act::hang_up, act::swap, act::resume}},
    {without_call, {waiting}, flashed, talking, none, {act::hang_up, act::swap, act::answer}},
    {without_call, {waiting}, asked_swap, talking, none, {act::hang_up, act::swap, act::answer}},
    {without_call, {none}, flashed, dialling, {}, {act::hang_up, act::open, act::dial_tone}},

    // The second call goes away, the receiver is replaced.
    {any, {held, waiting, joined}, other_ends, {}, none, {act::hang_up_second}},
    {off_hook, {waiting}, replaced, ringing, none, {act::hang_up, act::swap, act::ring}},
    {off_hook, {held}, replaced, ringing_back, none, {act::hang_up, act::swap, act::ring}},
    {off_hook, {joined}, replaced, on_hook, none, {act::hang_up, act::hang_up_second}},
    {off_hook, {none}, replaced, on_hook, {}, {act::hang_up}},
};

}  // namespace fxsphone
