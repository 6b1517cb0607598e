#include "phone/line_table.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace fxsphone {

using enum line::state;
using enum happening;

std::vector<order> line::lift(std::int64_t now_ms) {
    std::vector<order> wanted = pass_time(now_ms);
    bool const pressed = std::exchange(dues[hook_timer], 0) != 0;
    if (pressed)
        flash(now_ms, wanted);
    else
        happen(lifted, now_ms, wanted);
    return wanted;
}

void line::flash(std::int64_t now_ms, std::vector<order>& wanted) {
    bool const has_choice = companion != second::none && (front == talking || front == alerting);
    if (!has_choice)
        happen(flashed, now_ms, wanted);
    else if (settings.flash == flash_use::keys)
        dues[flash_key_timer] = now_ms + settings.flash_key_ms;
    else if (settings.flash == flash_use::conference && front == talking && companion != second::waiting)
        happen(companion == second::held ? asked_join : asked_drop_front, now_ms, wanted);
    else
        happen(asked_swap, now_ms, wanted);
}

void line::flash_key(char which, std::int64_t now_ms, std::vector<order>& wanted) {
    constexpr happening asked[] = {asked_drop_second, asked_drop_front, asked_swap, asked_join, asked_transfer};
    dues[flash_key_timer] = 0;
    if (which >= '0' && which < '0' + static_cast<int>(std::size(asked)))
        happen(asked[which - '0'], now_ms, wanted);
}

std::vector<order> line::replace(std::int64_t now_ms) {
    std::vector<order> wanted = pass_time(now_ms);
    bool const may_flash =
        front == state::talking || companion != second::none || front == refused || front == left_off;
    dues[flash_key_timer] = 0;
    if (dues[hook_timer] == 0 && may_flash && settings.flash_ms > 0)
        dues[hook_timer] = now_ms + settings.flash_ms;
    else if (dues[hook_timer] == 0)
        put_down(now_ms, wanted);
    return wanted;
}

void line::put_down(std::int64_t now_ms, std::vector<order>& wanted) {
    bool const connects = companion == second::held && (front == talking || front == calling || front == alerting);
    happen(connects && settings.transfer ? handed_over : replaced, now_ms, wanted);
}

std::vector<order> line::press(char which, std::int64_t now_ms) {
    std::vector<order> wanted = pass_time(now_ms);
    if (std::string_view("0123456789*#ABCD").find(which) == std::string_view::npos)
        return wanted;
    if (dues[flash_key_timer] != 0) {
        flash_key(which, now_ms, wanted);
        return wanted;
    }
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
    bool const pending = front == transferring || front == handing_over;
    if (what == transferred && !pending)  // it talks to somebody else
        what = far_ends;
    bool const in_front = of_leg == leg || what == invited;
    bool const gone = what == far_ends || what == far_fails || what == far_busy;
    bool const outcome = what == transferred || what == transfer_failed;
    if (in_front || outcome)
        happen(what, now_ms, wanted);
    else if (gone || what == far_answers)
        happen(gone ? other_ends : other_answers, now_ms, wanted);
    return wanted;
}

std::vector<order> line::pass_time(std::int64_t now_ms) {
    std::vector<order> wanted;
    for (auto next = due_ms(); next && *next <= now_ms; next = due_ms())
        due(static_cast<timer>(std::ranges::find(dues, *next) - dues.begin()), *next, wanted);
    return wanted;
}

void line::due(timer which, std::int64_t at_ms, std::vector<order>& wanted) {
    dues[which] = 0;
    switch (which) {
        case hook_timer: put_down(at_ms, wanted); break;
        case flash_key_timer: happen(asked_swap, at_ms, wanted); break;
        case state_timer:
            if (front == collecting)
                dial(judge_keys(settings.codes, plan, keys), at_ms, wanted);
            else if (is_hot())
                dial({dial_plan::verdict::complete, feature::none, settings.hot_line}, at_ms, wanted);
            else
                happen(timed_out, at_ms, wanted);
            break;
    }
}

std::optional<std::int64_t> line::due_ms() const {
    std::optional<std::int64_t> first;
    for (std::int64_t const one : dues)
        if (one != 0 && one < first.value_or(INT64_MAX))
            first = one;
    return first;
}

std::optional<int> line::free_leg() const {
    if (companion != second::none || chosen.do_not_disturb)
        return std::nullopt;
    if (front == state::on_hook)
        return leg;
    return front == talking && settings.call_waiting && dues[hook_timer] == 0 ? std::optional(1 - leg) : std::nullopt;
}

std::string line::forward_to() const {
    if (!chosen.forward_always.empty())
        return chosen.forward_always;
    return free_leg() ? "" : chosen.forward_busy;
}

std::vector<order> line::restart(std::int64_t now_ms) {
    std::vector<order> wanted;
    bool const lifted_still = front != on_hook && front != handing_over && !rings() && dues[hook_timer] == 0;
    if (rings() || front == howling)
        carry_out(act::stop_ringing, wanted);
    carry_out(act::hang_up, wanted);
    carry_out(act::hang_up_second, wanted);
    front = state::on_hook;
    companion = second::none;
    dues = {};
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
    dues[state_timer] = own_time == 0 ? 0 : now_ms + own_time;
}

void line::carry_out(act what, std::vector<order>& wanted) {
    auto const sound = [&](tone which) { wanted.push_back({order_kind::tone, leg, which}); };
    auto const want = [&](order_kind kind, int of_leg) { wanted.push_back({kind, of_leg}); };
    auto const send = [&](int to) {
        wanted.push_back({order_kind::send_key, to, tone::none, std::string(1, last_key)});
    };
    switch (what) {
        case act::none: break;
        case act::open: want(order_kind::open, leg); break;
        case act::dial_tone: sound(has_message ? tone::stutter : tone::dial); break;
        case act::done_tone: sound(tone::stutter); break;
        case act::ringback_tone: sound(tone::ringback); break;
        case act::busy_tone: sound(tone::busy); break;
        case act::congestion_tone: sound(tone::congestion); break;
        case act::silence: sound(tone::none); break;
        case act::waiting_tone: want(order_kind::waiting_tone, 1 - leg); break;
        case act::ring: want(order_kind::ring, leg); break;
        case act::stop_ringing: want(order_kind::stop_ringing, leg); break;
        case act::howl: want(order_kind::howl, leg); break;
        case act::invite: wanted.push_back({order_kind::invite, leg, tone::none, called, anonymous}); break;
        case act::answer: want(order_kind::answer, leg); break;
        case act::refuse: wanted.push_back({order_kind::refuse, leg, tone::none, chosen.forward_no_answer}); break;
        case act::decline_second: want(order_kind::decline, 1 - leg); break;
        case act::hang_up: want(order_kind::hang_up, leg); break;
        case act::hang_up_second: want(order_kind::hang_up, 1 - leg); break;
        case act::hold: want(order_kind::hold, leg); break;
        case act::hold_second: want(order_kind::hold, 1 - leg); break;
        case act::resume: want(order_kind::resume, leg); break;
        case act::resume_second: want(order_kind::resume, 1 - leg); break;
        case act::swap: leg = 1 - leg; break;
        case act::transfer: wanted.push_back({order_kind::transfer, leg, tone::none, called}); break;
        case act::transfer_second: want(order_kind::transfer, 1 - leg); break;
        case act::follow: want(order_kind::follow, 1 - leg); break;
        case act::connect: want(order_kind::connect, leg); break;
        case act::remember: want(order_kind::remember, leg); break;
        case act::send_key: send(leg); break;
        case act::send_key_to_second: send(1 - leg); break;
    }
}

void line::dialled_so_far(std::int64_t now_ms, std::vector<order>& wanted) {
    keys += last_key;
    dialled_number number = judge_keys(settings.codes, plan, keys);
    // The key # ends a number, unless a rule has it in its pattern.
    if (last_key == '#' &&
        (number.reached == dial_plan::verdict::wrong || number.reached == dial_plan::verdict::possible)) {
        keys.pop_back();
        number = judge_keys(settings.codes, plan, keys);
        number.reached = number.destination.empty() ? dial_plan::verdict::wrong : dial_plan::verdict::complete;
    }
    if (number.reached == dial_plan::verdict::complete || number.reached == dial_plan::verdict::wrong)
        dial(number, now_ms, wanted);
}

void line::dial(dialled_number const& number, std::int64_t now_ms, std::vector<order>& wanted) {
    bool const whole = number.reached >= dial_plan::verdict::possible;
    if (whole && chosen.apply(number.what, number.destination)) {
        happen(feature_set, now_ms, wanted);
        return;
    }
    called = number.what == feature::call_back ? chosen.last_caller
             : number.what == feature::redial  ? chosen.last_dialled
                                               : number.destination;
    if (whole && !called.empty())
        chosen.last_dialled = called;
    anonymous = settings.hide_number || number.what == feature::hide_number;
    happening const right = number.what == feature::transfer ? dialled_transfer : dialled;
    happen(whole && !called.empty() ? right : misdialled, now_ms, wanted);
}

int line::own_time_ms() const {
    switch (front) {
        case ringing: return chosen.forward_no_answer.empty() ? settings.no_answer_ms : settings.forward_ms;
        case ringing_back: return settings.no_answer_ms;
        case dialling: return is_hot() ? std::max(1, settings.hot_line_ms) : settings.first_key_ms;
        case collecting: return settings.next_key_ms;
        case transferring:
        case handing_over: return settings.transfer_ms;
        case refused: return settings.tone_ms;
        case talking: return companion == second::waiting ? settings.waiting_tone_ms : 0;
        case state::on_hook:
        case calling:
        case alerting:
        case howling: return 0;
        case left_off: return settings.howl_ms;
    }
    return 0;
}

}  // namespace fxsphone
