#include "phone/adapter.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "phone/driver_words.h"
#include "phone/feature_store.h"
#include "phone/private_address.h"

namespace fxsphone {

namespace {

/// Where RTCP goes without other knowledge (RFC 3550 section 11).
fxsmedia::endpoint port_above(fxsmedia::endpoint one) {
    one.port++;
    return one;
}

}  // namespace

adapter::adapter(phone_settings const& chosen, bool trace_sip)
    : settings(chosen), trace(trace_sip), ringer(chosen.ring_device) {
    auto const kept = settings.state_file.empty() ? features_by_user() : read_features(settings.state_file);
    for (telephone_settings const& one : settings.telephones) {
        line_settings own = settings.times;
        own.hide_number = one.hide_number;
        own.hot_line = one.hot_line;
        own.hot_line_ms = one.hot_line_ms;
        auto made = std::make_unique<telephone>(one, line(dial_plan(settings.plan), own));
        if (auto const known = kept.find(one.user); known != kept.end())
            made->state.set_features(known->second);
        for (int i : {0, 1}) {
            made->legs[i].line = one.number;
            made->legs[i].channel = 2 * one.number + i;
        }
        telephones.push_back(std::move(made));
    }
    timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
}

adapter::~adapter() {
    if (timer >= 0) {
        fd_close(timer);
        close(timer);
    }
    if (process.fd() >= 0)
        fd_close(process.fd());
}

std::string adapter::start() {
    std::string const problem = agent.start(settings, trace, [this](sip_msg const* request) { take_invite(request); });
    if (!problem.empty())
        return problem;
    if (std::string const failed = events.start(
            agent.stack(), [this](std::string const& user, bool waiting) { message_summary(user, waiting); });
        !failed.empty())
        return failed;
    if (!settings.status_socket.empty())
        if (std::string const failed = door.open(settings.status_socket, [this] { return status(); }); !failed.empty())
            return failed;
    if (!process.start(settings.process_port))
        return std::string("no socket for the media process: ") + std::strerror(errno);
    auto const readable = [](int, void* arg) {
        auto* const self = static_cast<adapter*>(arg);
        self->process.serve();
        self->wake_in_time();
    };
    auto const due = [](int, void* arg) {
        std::uint64_t times = 0;
        auto* const self = static_cast<adapter*>(arg);
        if (read(self->timer, &times, sizeof times) > 0)
            self->pass_time();
        self->wake_in_time();
    };
    int failed = fd_listen(process.fd(), FD_READ, readable, this);
    failed = failed != 0 ? failed : fd_listen(timer, FD_READ, due, this);
    register_telephones();
    wake_in_time();
    return failed == 0 ? "" : std::strerror(failed);
}

void adapter::stop() {
    if (std::exchange(stopping, true)) {  // asked twice: the far ends may never answer
        re_cancel();
        return;
    }
    for (auto& one : telephones) {
        if (one->state.rings() || one->state.now_in() == line::state::howling)
            ringer.stop(one->settings.number);
        for (leg& each : one->legs)
            end(each);
    }
    door.close();
    if (settings.led && process.connected())
        process.send(fxsmedia::led_command{.pattern = 0});
    events.stop();
    registrations.clear();
    agent.stop();
}

/// One after the other, and not at the same moment as every other device that has got its power back.
void adapter::register_telephones() {
    constexpr std::uint64_t apart_ms = 500;
    std::uint64_t after_ms = 0;
    for (auto const& one : telephones) {
        if (!one->settings.registrar)
            continue;
        after_ms += rand_u16() % apart_ms;
        registrations.push_back(
            std::make_unique<registration>(agent.stack(), one->settings, settings.instance, after_ms));
        after_ms += apart_ms;
    }
}

// Time

void adapter::pass_time() {
    process.serve();
    for (auto& one : telephones) {
        carry_out(*one, one->state.pass_time(now()));
        for (leg& each : one->legs)
            judge_silence(each);
        if (one->stutter_leg >= 0 && one->stutter_due <= now())
            go_on_stuttering(*one);
        if (one->waiting_leg >= 0 && one->waiting_tone_end <= now()) {
            leg const& waits = one->legs[one->waiting_leg];
            one->waiting_leg = -1;
            play(waits, tone::none);
            put_on_line(waits, false);
        }
    }
}

std::int64_t adapter::next_due_ms() const {
    int const process_wait = process.timeout_ms();
    std::int64_t due = process_wait < 0 ? INT64_MAX : now() + process_wait;
    for (auto const& one : telephones) {
        due = std::min(due, one->state.due_ms().value_or(due));
        for (leg const& each : one->legs)
            due = std::min(due, silence_ends_ms(each));
        if (one->waiting_leg >= 0)
            due = std::min(due, one->waiting_tone_end);
        if (one->stutter_leg >= 0)
            due = std::min(due, one->stutter_due);
    }
    return due;
}

void adapter::wake_in_time() {
    show_led();
    std::int64_t const due = next_due_ms();
    if (due == INT64_MAX || stopping)
        return;
    std::int64_t const wait_ms = std::max<std::int64_t>(0, due - now());
    itimerspec when = {};
    when.it_value.tv_sec = static_cast<time_t>(wait_ms / 1000);
    when.it_value.tv_nsec = static_cast<long>(wait_ms % 1000) * 1'000'000 + 1;  // all zero would stop the timer
    timerfd_settime(timer, 0, &when, nullptr);
}

// From the media process

void adapter::on(fxsmedia::session_started const&) {
    std::fprintf(stderr, "the media process answers\n");
    for (auto& one : telephones)  // what an earlier run has left
        for (leg const& each : one->legs)
            process.send(fxsmedia::end_command{.call = each.channel});
}

void adapter::on(fxsmedia::process_lost const& loss) {
    std::fprintf(stderr, "the media process %s\n", loss.refused ? "has ended" : "does not answer");
}

void adapter::on(fxsmedia::process_resumed const&) {
    std::fprintf(stderr, "the media process answers again\n");
}

void adapter::on(fxsmedia::process_restarted const&) {
    std::fprintf(stderr, "the media process was restarted, all calls end\n");
    led_shown = 0;
    for (auto& one : telephones) {
        for (leg& each : one->legs)
            if (each.record)
                each.record->ended_by = "media";
        carry_out(*one, one->state.restart(now()));
    }
}

void adapter::on(fxsmedia::open_report const& opened) {
    leg* const one = leg_of(opened.call);
    if (one == nullptr || !one->on_process)
        return;
    if (opened.rtp_port == 0) {
        std::fprintf(stderr, "line %d: no ports for media\n", one->line);
        return;
    }
    one->rtp_port = opened.rtp_port;
    port_known(*one);
}

void adapter::on(fxsmedia::timed_out const& request) {
    std::fprintf(stderr, "no answer from the media process, command %d of %d\n", request.tag, request.id);
}

/// Who names a private address sits behind a translator, or beside us: what comes from there tells where to send.
void adapter::on(fxsmedia::driver_report const& said) {
    auto const word = read_driver_word(said.text);
    if (!word || stopping)
        return;
    if (telephone* const spoken_of = telephone_of(word->line)) {
        spoken_of->lifted_ms = word->what == driver_word::kind::off_hook ? now() : 0;
        spoken_of->last_key_ms = word->what == driver_word::kind::key ? now() : spoken_of->last_key_ms;
    }
    tell_line(word->line, [&](line& state) {
        switch (word->what) {
            case driver_word::kind::off_hook: return state.lift(now());
            case driver_word::kind::on_hook: return state.replace(now());
            case driver_word::kind::key: return state.press(word->key, now());
        }
        return std::vector<order>();
    });
}

template <class action>
void adapter::tell_line(int number, action&& tell) {
    if (telephone* const which = telephone_of(number))
        carry_out(*which, tell(which->state));
    wake_in_time();
}

// From the network

void adapter::take_invite(sip_msg const* request) {
    if (takes_over(request))
        return;
    telephone* const called = telephone_of(text_of(request->uri.user));
    if (called != nullptr && process.connected() && sent_elsewhere(*called, request))
        return;
    auto const free = called == nullptr || !process.connected() ? std::nullopt : called->state.free_leg();
    if (!free) {
        bool const busy = called != nullptr && process.connected();
        sip_treply(nullptr, agent.stack(), request,
                   called == nullptr ? 404
                   : busy            ? 486
                                     : 503,
                   called == nullptr ? "Not Found"
                   : busy            ? "Busy Here"
                                     : "Service Unavailable");
        return;
    }
    leg& one = called->legs[*free];
    begin_call(one, sip_call_direction::incoming, sa_af(&request->src) == AF_INET6);
    if (!one.call->take(agent.door(), agent.stack(), request, called->settings.user)) {
        one.record.reset();
        end(one);
        return;
    }
    one.record->far = one.call->far_address();
    if (one.call->far_number() != "anonymous") {  // RFC 3323 section 4.1.1.3: nobody can be called there
        called->state.called_by(one.call->far_address());
        remember();
    }
    open(one, false);
    tell_line(one.line, [&](line& state) { return state.far(happening::invited, *free, now()); });
}

/// Its owner has it forwarded.
bool adapter::sent_elsewhere(telephone const& called, sip_msg const* request) {
    std::string const to = called.state.forward_to();
    if (to.empty())
        return false;
    sip_treplyf(nullptr, nullptr, agent.stack(), request, false, 302, "Moved Temporarily",
                "Contact: <%s>\r\nContent-Length: 0\r\n\r\n", to.c_str());
    return true;
}

void adapter::message_summary(std::string const& user, bool waiting) {
    if (telephone* const one = telephone_of(user))
        one->state.message_waits(waiting);
}

void adapter::remember() {
    if (settings.state_file.empty())
        return;
    features_by_user all;
    for (auto const& one : telephones)
        all[one->settings.user] = one->state.features();
    if (!write_features(settings.state_file, all))
        std::fprintf(stderr, "can't write %s: %s\n", settings.state_file.c_str(), std::strerror(errno));
}

/// For the record of the call, which is complete with the far end's last word.
void adapter::note(leg& one, happening what) {
    if (!one.record)
        return;
    if (what == happening::far_rings && one.record->rang_ms == 0)
        one.record->rang_ms = now();
    if (what == happening::far_answers)
        one.record->answered_ms = now();
    bool const ends = what == happening::far_ends;
    if (!ends && what != happening::far_busy && what != happening::far_fails)
        return;
    one.record->ended_by = ends ? "far" : "network";
    write_record(one);
}

void adapter::heard(sip_call& call, happening what) {
    leg* const one = leg_of(call);
    if (one == nullptr)
        return;
    tell_referrer(*one, what);
    note(*one, what);
    int const number = one->channel % 2;
    tell_line(one->line, [&](line& state) { return state.far(what, number, now()); });
}

void adapter::media_agreed(sip_call& call, media_plan const& plan) {
    leg* const one = leg_of(call);
    if (one == nullptr)
        return;
    if (one->record)
        one->record->codec = one->media->codec_name();
    one->speaks_since_ms = plan.rtp && !one->held ? now() : 0;
    one->heard.codec_chosen(plan.send.codec);
    bool const as_tones = telephone_of(one->line)->settings.keys == key_transport::tones;
    if (plan.rtp && one->offered != plan.rtp) {
        one->offered = plan.rtp;
        one->source.reset();
    }
    bool const moved = plan.rtp && one->source;
    fxsmedia::media_command command{.call = one->channel,
                                    .send = plan.send,
                                    .map = plan.map,
                                    .ptime = plan.ptime_ms,
                                    .event_pt = as_tones ? std::nullopt : plan.event_pt,
                                    .ssrc = fxsmedia::byte_view(one->ssrc),
                                    .rtp = moved ? one->source : plan.rtp,
                                    .rtcp = moved ? port_above(*one->source) : plan.rtcp,
                                    .xr = plan.xr};
    if (one->srtp != plan.srtp) {  // the same keys again would begin the streams anew
        command.srtp_rx_key = plan.srtp ? fxsmedia::byte_view(plan.srtp->receive) : fxsmedia::byte_view();
        command.srtp_tx_key = plan.srtp ? fxsmedia::byte_view(plan.srtp->send) : fxsmedia::byte_view();
        command.srtp_tag = plan.srtp ? plan.srtp->tag_bytes : 0;
        one->srtp = plan.srtp;
    }
    process.send(command);
}

void adapter::follow_source(leg& one, fxsmedia::endpoint const& source) {
    if (!one.offered || one.source || *one.offered == source || !is_private(*one.offered))
        return;
    one.source = source;
    process.send(fxsmedia::media_command{.call = one.channel, .rtp = source, .rtcp = port_above(source)});
}

// Whose is it

adapter::leg* adapter::leg_of(int channel) {
    telephone* const which = telephone_of(channel / 2);
    return which == nullptr ? nullptr : &which->legs[channel % 2];
}

adapter::leg* adapter::leg_of(sip_call const& call) {
    for (auto& one : telephones)
        for (leg& each : one->legs)
            if (each.call.get() == &call)
                return &each;
    return nullptr;
}

adapter::telephone* adapter::telephone_of(int number) {
    auto const found =
        std::ranges::find_if(telephones, [&](auto const& one) { return one->settings.number == number; });
    return found == telephones.end() ? nullptr : found->get();
}

adapter::telephone* adapter::telephone_of(std::string const& user) {
    auto const found = std::ranges::find_if(telephones, [&](auto const& one) { return one->settings.user == user; });
    return found == telephones.end() ? nullptr : found->get();
}

}  // namespace fxsphone
