#include <cstdio>

#include "phone/adapter.h"

/// What is seen of the telephones from outside: LED, status, calls without media.
namespace fxsphone {

namespace {

/// Of the process's LED command.
enum led_pattern { led_off = 0, led_even = 1, led_hasty = 2, led_short = 3 };

char const* name_of(line::state now) {
    switch (now) {
        case line::state::on_hook: return "on_hook";
        case line::state::ringing: return "ringing";
        case line::state::ringing_back: return "ringing_back";
        case line::state::dialling: return "dial_tone";
        case line::state::collecting: return "dialling";
        case line::state::calling: return "calling";
        case line::state::alerting: return "alerting";
        case line::state::talking: return "talking";
        case line::state::transferring:
        case line::state::handing_over: return "transferring";
        case line::state::refused: return "refused";
        case line::state::left_off: return "left_off_hook";
        case line::state::howling: return "howling";
    }
    return "";
}

}  // namespace

void adapter::show_led() {
    int wanted = led_off;
    for (auto const& one : telephones) {
        if (one->state.has_messages() && wanted == led_off)
            wanted = led_short;
        if (one->state.now_in() != line::state::on_hook && wanted != led_hasty)
            wanted = led_even;
        if (one->state.rings())
            wanted = led_hasty;
    }
    if (!settings.led || !process.connected() || wanted == led_shown)
        return;
    led_shown = wanted;
    process.send(fxsmedia::led_command{.pattern = wanted});
}

std::string adapter::status() const {
    nlohmann::ordered_json all{{"media_process", process.connected()}, {"lines", nlohmann::ordered_json::array()}};
    for (auto const& one : telephones) {
        nlohmann::ordered_json row{{"line", one->settings.number}, {"user", one->settings.user}};
        row["state"] = name_of(one->state.now_in());
        row["message_waiting"] = one->state.has_messages();
        row["do_not_disturb"] = one->state.features().do_not_disturb;
        row["forward_always"] = one->state.features().forward_always;
        row["calls"] = nlohmann::ordered_json::array();
        for (leg const& each : one->legs)
            if (each.record)
                row["calls"].push_back({{"far", each.record->far},
                                        {"codec", each.record->codec},
                                        {"answered", each.record->answered_ms != 0},
                                        {"age_ms", now() - each.record->begun_ms},
                                        {"media_lost", each.record->media_lost}});
        all["lines"].push_back(std::move(row));
    }
    return all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void adapter::on(fxsmedia::rtcp_report const& copy) {
    leg* const one = leg_of(copy.call);
    if (one == nullptr || !one->on_process)
        return;
    if (copy.received)
        one->heard.rtcp(true, *copy.received, now());
    if (copy.sent)
        one->heard.rtcp(false, *copy.sent, now());
}

void adapter::on(fxsmedia::new_ssrc_report const& stream) {
    if (leg* const one = leg_of(stream.call)) {
        one->heard.stream_began(now());
        follow_source(*one, stream.from);
    }
}

void adapter::on(fxsmedia::confirmed const& answer) {
    telephone* const one = telephone_of(answer.token);
    if (one != nullptr && one->lifted_ms != 0)
        one->lift_to_tone_ms = now() - std::exchange(one->lifted_ms, 0);
}

/// When the call has been silent for too long; INT64_MAX: it need not say anything.
std::int64_t adapter::silence_ends_ms(leg const& one) const {
    bool const speaks = settings.media_timeout_ms != 0 && one.record && one.record->answered_ms != 0 &&
                        one.speaks_since_ms != 0 && !one.record->media_lost;
    return speaks ? std::max(one.speaks_since_ms, one.heard.last_heard_ms()) + settings.media_timeout_ms : INT64_MAX;
}

void adapter::judge_silence(leg& one) {
    if (silence_ends_ms(one) > now())
        return;
    std::fprintf(stderr, "line %d: nothing is received from %s\n", one.line, one.record->far.c_str());
    one.record->media_lost = true;
    if (!settings.media_timeout_ends)
        return;
    one.record->ended_by = "media";
    write_record(one);
    one.call.reset();
    int const number = one.channel % 2;
    tell_line(one.line, [&](line& state) { return state.far(happening::far_fails, number, now()); });
}

}  // namespace fxsphone
