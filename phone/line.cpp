#include "phone/line.h"

#include <algorithm>
#include <string_view>

namespace fxsphone {

enum class line::act : std::uint8_t {
    none,
    open,
    dial_tone,
    ringback_tone,
    busy_tone,
    congestion_tone,
    silence,
    waiting_tone,
    ring,
    stop_ringing,
    invite,
    answer,
    refuse,
    hang_up,
    hang_up_second,
    hold,
    resume,
    swap,
    send_key,
};

/// Applies in any of its states and with any of its companions; the first row that fits counts.
struct line::row {
    std::vector<state> when;
    std::vector<second> with;
    happening what;
    std::optional<state> next;  ///< nullopt: stays, its time-out runs on
    std::optional<second> next_second;
    std::array<act, 4> acts = {};
};

namespace {

using enum line::state;
using enum happening;

std::vector<line::state> const off_hook_states = {dialling, collecting, calling, alerting, talking, refused, left_off};
std::vector<line::state> const before_answer = {calling, alerting};
std::vector<line::state> const without_call = {refused, left_off};
std::vector<line::state> const all_states = {on_hook,  ringing, dialling, collecting, calling,
                                             alerting, talking, refused,  left_off};

}  // namespace

std::vector<line::row> const line::table = {
    // The receiver is on the hook.
    {{on_hook}, {second::none}, lifted, dialling, {}, {act::open, act::dial_tone}},
    {{on_hook}, {second::none}, invited, ringing, {}, {act::ring}},
    {{ringing}, {second::none}, lifted, talking, {}, {act::stop_ringing, act::answer}},
    {{ringing}, {second::none}, far_ends, on_hook, {}, {act::stop_ringing, act::hang_up}},
    {{ringing}, {second::none}, timed_out, on_hook, {}, {act::stop_ringing, act::refuse, act::hang_up}},

    // A number is dialled and called.
    {{dialling}, {}, key, collecting, {}, {act::silence}},
    {{dialling}, {}, timed_out, refused, {}, {act::congestion_tone}},
    {{collecting}, {}, key, collecting, {}, {}},
    {{collecting}, {}, dialled, calling, {}, {act::invite}},
    {{collecting}, {}, misdialled, refused, {}, {act::congestion_tone}},
    {{calling}, {}, far_rings, alerting, {}, {act::ringback_tone}},
    {before_answer, {}, far_answers, talking, {}, {act::silence}},
    {before_answer, {}, far_busy, refused, {}, {act::busy_tone}},
    {before_answer, {}, far_fails, refused, {}, {act::congestion_tone}},
    {before_answer, {}, far_ends, refused, {}, {act::congestion_tone}},

    // A call.
    {{talking}, {}, key, {}, {}, {act::send_key}},
    {{talking}, {}, far_ends, refused, {}, {act::busy_tone}},
    {{talking}, {}, far_fails, refused, {}, {act::congestion_tone}},
    {{talking}, {second::none}, invited, talking, second::waiting, {act::waiting_tone}},
    {{talking}, {second::waiting}, timed_out, talking, {}, {act::waiting_tone}},
    {{talking}, {second::none}, flashed, dialling, second::held, {act::hold, act::swap, act::open, act::dial_tone}},
    {{talking}, {second::waiting}, flashed, talking, second::held, {act::hold, act::swap, act::answer}},
    {{talking}, {second::held}, flashed, talking, {}, {act::hold, act::swap, act::resume}},

    // No call any more, or none yet.
    {{refused}, {}, timed_out, left_off, {}, {act::silence}},
    {off_hook_states, {second::held}, flashed, talking, second::none, {act::hang_up, act::swap, act::resume}},
    {without_call, {second::waiting}, flashed, talking, second::none, {act::hang_up, act::swap, act::answer}},
    {without_call, {second::none}, flashed, dialling, {}, {act::hang_up, act::open, act::dial_tone}},

    // The second call goes away, the receiver is replaced.
    {all_states, {second::held, second::waiting}, other_ends, {}, second::none, {act::hang_up_second}},
    {off_hook_states, {second::waiting}, replaced, ringing, second::none, {act::hang_up, act::swap, act::ring}},
    {off_hook_states, {second::held}, replaced, on_hook, second::none, {act::hang_up, act::hang_up_second}},
    {off_hook_states, {second::none}, replaced, on_hook, {}, {act::hang_up}},
};

std::vector<order> line::lift(std::int64_t now_ms) {
    std::vector<order> wanted = pass_time(now_ms);
    bool const pressed = flash_due != 0;
    flash_due = 0;
    happen(pressed ? flashed : lifted, now_ms, wanted);
    return wanted;
}

std::vector<order> line::replace(std::int64_t now_ms) {
    std::vector<order> wanted = pass_time(now_ms);
    bool const may_flash =
        front == state::talking || companion != second::none || front == refused || front == left_off;
    if (flash_due == 0 && may_flash && settings.flash_ms > 0)
        flash_due = now_ms + settings.flash_ms;
    else if (flash_due == 0)
        happen(replaced, now_ms, wanted);
    return wanted;
}

std::vector<order> line::press(char which, std::int64_t now_ms) {
    std::vector<order> wanted = pass_time(now_ms);
    if (std::string_view("0123456789*#ABCD").find(which) == std::string_view::npos)
        return wanted;
    last_key = which;
    bool const dials = front == dialling || front == collecting;
    if (front == dialling)
        keys.clear();
    happen(key, now_ms, wanted);
    if (dials)
        dialled_so_far(now_ms, wanted);
    return wanted;
}

std::vector<order> line::far(happening what, int of_leg, std::int64_t now_ms) {
    std::vector<order> wanted = pass_time(now_ms);
    bool const in_front = of_leg == leg || what == invited;
    bool const gone = what == far_ends || what == far_fails || what == far_busy;
    if (in_front)
        happen(what, now_ms, wanted);
    else if (gone)
        happen(other_ends, now_ms, wanted);
    return wanted;
}

std::vector<order> line::pass_time(std::int64_t now_ms) {
    std::vector<order> wanted;
    for (auto due = due_ms(); due && *due <= now_ms; due = due_ms()) {
        bool const hook = flash_due == *due;
        (hook ? flash_due : state_due) = 0;
        if (!hook && front == collecting)
            happen(plan.destination(keys).empty() ? misdialled : dialled, *due, wanted);
        else
            happen(hook ? replaced : timed_out, *due, wanted);
    }
    return wanted;
}

std::optional<std::int64_t> line::due_ms() const {
    if (state_due == 0 && flash_due == 0)
        return std::nullopt;
    return state_due == 0 ? flash_due : flash_due == 0 ? state_due : std::min(state_due, flash_due);
}

std::optional<int> line::free_leg() const {
    if (companion != second::none)
        return std::nullopt;
    if (front == state::on_hook)
        return leg;
    return front == talking && settings.call_waiting && flash_due == 0 ? std::optional(1 - leg) : std::nullopt;
}

std::vector<order> line::restart(std::int64_t now_ms) {
    std::vector<order> wanted;
    bool const lifted_still = front != state::on_hook && front != ringing && flash_due == 0;
    if (front == ringing)
        carry_out(act::stop_ringing, wanted);
    carry_out(act::hang_up, wanted);
    carry_out(act::hang_up_second, wanted);
    front = state::on_hook;
    companion = second::none;
    state_due = flash_due = 0;
    if (lifted_still)
        happen(lifted, now_ms, wanted);
    return wanted;
}

void line::happen(happening what, std::int64_t now_ms, std::vector<order>& wanted) {
    auto const fits = [&](row const& one) {
        return one.what == what && std::ranges::count(one.when, front) != 0 &&
               (one.with.empty() || std::ranges::count(one.with, companion) != 0);
    };
    auto const found = std::ranges::find_if(table, fits);
    if (found == table.end())
        return;
    for (act const one : found->acts)
        carry_out(one, wanted);
    companion = found->next_second.value_or(companion);
    if (!found->next)
        return;
    front = *found->next;
    int const own_time = own_time_ms();
    state_due = own_time == 0 ? 0 : now_ms + own_time;
}

void line::carry_out(act what, std::vector<order>& wanted) {
    auto const sound = [&](tone which) { wanted.push_back({order_kind::tone, leg, which}); };
    auto const want = [&](order_kind kind, int of_leg) { wanted.push_back({kind, of_leg}); };
    switch (what) {
        case act::none: break;
        case act::open: want(order_kind::open, leg); break;
        case act::dial_tone: sound(tone::dial); break;
        case act::ringback_tone: sound(tone::ringback); break;
        case act::busy_tone: sound(tone::busy); break;
        case act::congestion_tone: sound(tone::congestion); break;
        case act::silence: sound(tone::none); break;
        case act::waiting_tone: want(order_kind::waiting_tone, 1 - leg); break;
        case act::ring: want(order_kind::ring, leg); break;
        case act::stop_ringing: want(order_kind::stop_ringing, leg); break;
        case act::invite: wanted.push_back({order_kind::invite, leg, tone::none, plan.destination(keys)}); break;
        case act::answer: want(order_kind::answer, leg); break;
        case act::refuse: want(order_kind::refuse, leg); break;
        case act::hang_up: want(order_kind::hang_up, leg); break;
        case act::hang_up_second: want(order_kind::hang_up, 1 - leg); break;
        case act::hold: want(order_kind::hold, leg); break;
        case act::resume: want(order_kind::resume, leg); break;
        case act::swap: leg = 1 - leg; break;
        case act::send_key: wanted.push_back({order_kind::send_key, leg, tone::none, std::string(1, last_key)}); break;
    }
}

void line::dialled_so_far(std::int64_t now_ms, std::vector<order>& wanted) {
    keys += last_key;
    dial_plan::verdict reached = plan.judge(keys);
    // The key # ends a number, unless a rule has it in its pattern.
    if (last_key == '#' && (reached == dial_plan::verdict::wrong || reached == dial_plan::verdict::possible)) {
        keys.pop_back();
        reached = plan.destination(keys).empty() ? dial_plan::verdict::wrong : dial_plan::verdict::complete;
    }
    if (reached == dial_plan::verdict::complete)
        happen(dialled, now_ms, wanted);
    else if (reached == dial_plan::verdict::wrong)
        happen(misdialled, now_ms, wanted);
}

int line::own_time_ms() const {
    switch (front) {
        case ringing: return settings.no_answer_ms;
        case dialling: return settings.first_key_ms;
        case collecting: return settings.next_key_ms;
        case refused: return settings.tone_ms;
        case talking: return companion == second::waiting ? settings.waiting_tone_ms : 0;
        case state::on_hook:
        case calling:
        case alerting:
        case left_off: return 0;
    }
    return 0;
}

}  // namespace fxsphone
