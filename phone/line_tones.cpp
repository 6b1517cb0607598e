#include "phone/line_tones.h"

#include <algorithm>

namespace fxsphone {

namespace {

constexpr int stutter_ms = 100;  // and as long a pause, ten times: the recalled dial tone of ITU-T E.180 supplement 2
constexpr int stutters = 20;
constexpr int waiting_tone_ms = 300;  // as most countries have it, ITU-T E.180 supplement 2

}  // namespace

void line_tones::play(leg const& one, tone sound, std::int64_t now_ms) {
    under_way& here = lines[one.line];
    bool const stutters_now = sound == tone::stutter;
    here.stutter_leg = stutters_now ? one.number() : -1;
    here.stutters_left = stutters;
    here.stutter_due = now_ms + stutter_ms;
    channels.play(one, stutters_now ? tone::dial : sound);
}

void line_tones::announce(leg const& one, std::int64_t now_ms) {
    lines[one.line].waiting_leg = one.number();
    lines[one.line].waiting_end = now_ms + waiting_tone_ms;
    channels.put_on_line(one, true);
    channels.play(one, tone::dial);
}

void line_tones::end_announcement(leg const& one) {
    if (lines[one.line].waiting_leg != one.number())
        return;
    lines[one.line].waiting_leg = -1;
    channels.play(one, tone::none);
}

void line_tones::forget(leg const& one) {
    for (int* const playing : {&lines[one.line].waiting_leg, &lines[one.line].stutter_leg})
        *playing = *playing == one.number() ? -1 : *playing;
}

void line_tones::pass_time(telephone const& which, std::int64_t now_ms) {
    under_way& here = lines[which.settings.number];
    if (here.stutter_leg >= 0 && here.stutter_due <= now_ms) {
        here.stutters_left--;
        channels.play(which.legs[here.stutter_leg], here.stutters_left % 2 == 0 ? tone::dial : tone::none);
        here.stutter_due += stutter_ms;
        if (here.stutters_left == 0)
            here.stutter_leg = -1;
    }
    if (here.waiting_leg >= 0 && here.waiting_end <= now_ms) {
        leg const& waits = which.legs[here.waiting_leg];
        end_announcement(waits);
        channels.put_on_line(waits, false);
    }
}

std::int64_t line_tones::due_ms(int line) const {
    under_way const& here = lines[line];
    return std::min(here.waiting_leg >= 0 ? here.waiting_end : INT64_MAX,
                    here.stutter_leg >= 0 ? here.stutter_due : INT64_MAX);
}

}  // namespace fxsphone
