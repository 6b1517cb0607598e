#include "phone/adapter.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "phone/driver_words.h"
#include "phone/libre.h"
#include "phone/status.h"

namespace fxsphone {

adapter::adapter(phone_settings const& chosen, bool trace_sip)
    : settings(chosen),
      trace(trace_sip),
      process(*this),
      telephones(settings),
      channels(process, settings.tone_set),
      tones(channels),
      calls(settings, telephones, channels, tones, agent, *this),
      outside(process, telephones, [this](leg& one) { calls.port_known(one); }),
      referrals(telephones, calls, agent, events, *this, [this](leg& of, happening what) { happened(of, what); }),
      ringer(settings.ring_device),
      led(process) {
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
    std::string problem = listen();
    if (problem.empty() && !process.start(settings.process_port))
        problem = std::string("no socket for the media process: ") + std::strerror(errno);
    if (problem.empty())
        problem = watch_the_clock();
    if (!problem.empty())
        return problem;
    registrars.begin(agent.stack(), telephones, settings.instance);
    subscribe_to_mailboxes();
    wake_in_time();
    return "";
}

std::string adapter::listen() {
    std::string problem = agent.start(
        settings, trace, [this](sip_msg const* request) { take_invite(request); },
        [this](sip_msg const* request) { take_update(request); });
    if (problem.empty())
        problem = events.start(agent.stack(), [this](std::string const& user, bool waiting) {
            if (telephone* const one = telephones.of_user(user))
                one->state.message_waits(waiting);
        });
    if (problem.empty())
        problem = outside.begin(settings.stun, agent.name_servers());
    if (problem.empty() && !settings.status_socket.empty())
        problem =
            door.open(settings.status_socket, [this] { return status_of(telephones, process.connected(), now()); });
    return problem;
}

void adapter::subscribe_to_mailboxes() {
    for (auto const& one : telephones)
        if (!one->settings.mailbox.empty())
            mailboxes.push_back(std::make_unique<mailbox>(events.door(), settings, one->settings,
                                                          [this, which = one.get()](bool waiting) {
                                                              which->state.message_waits(waiting);
                                                              wake_in_time();
                                                          }));
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
            calls.end(each);
    }
    door.close();
    if (settings.led && process.connected())
        process.send(fxsmedia::led_command{.pattern = 0});
    mailboxes.clear();
    events.stop();
    registrars.end();
    agent.stop();
}

// Time

std::string adapter::watch_the_clock() {
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
    return failed == 0 ? "" : std::strerror(failed);
}

void adapter::pass_time() {
    process.serve();
    outside.pass_time(now());
    for (auto& one : telephones) {
        carry_out(*one, one->state.pass_time(now()));
        for (leg& each : one->legs)
            judge_silence(each);
        tones.pass_time(*one, now());
    }
}

std::int64_t adapter::next_due_ms() const {
    int const process_wait = process.timeout_ms();
    std::int64_t due = process_wait < 0 ? INT64_MAX : now() + process_wait;
    due = std::min({due, led.due_ms(), outside.due_ms()});
    for (auto const& one : telephones) {
        due = std::min(due, one->state.due_ms().value_or(due));
        for (leg const& each : one->legs)
            due = std::min(due, silence_ends_ms(each));
        due = std::min(due, tones.due_ms(one->settings.number));
    }
    return due;
}

void adapter::wake_in_time() {
    if (settings.led && !stopping)
        led.show(telephones, registrars.all_hold(), now());
    std::int64_t const due = next_due_ms();
    if (due == INT64_MAX || stopping)
        return;
    std::int64_t const wait_ms = std::max<std::int64_t>(0, due - now());
    itimerspec when = {};
    when.it_value.tv_sec = static_cast<time_t>(wait_ms / 1000);
    when.it_value.tv_nsec = static_cast<long>(wait_ms % 1000) * 1'000'000 + 1;  // all zero would stop the timer
    timerfd_settime(timer, 0, &when, nullptr);
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
    calls.write_record(one);
    one.call.reset();
    happened(one, happening::far_fails);
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
    led.forget();
    for (auto& one : telephones) {
        for (leg& each : one->legs)
            if (each.record)
                each.record->ended_by = "media";
        carry_out(*one, one->state.restart(now()));
    }
}

void adapter::on(fxsmedia::open_report const& opened) {
    leg* const one = telephones.of_channel(opened.call);
    if (one == nullptr || !one->on_process)
        return;
    if (opened.rtp_port == 0) {
        std::fprintf(stderr, "line %d: no ports for media\n", one->line);
        return;
    }
    outside.ask(*one, opened.rtp_port);
    wake_in_time();
}

void adapter::on(fxsmedia::timed_out const& request) {
    std::fprintf(stderr, "no answer from the media process, command %d of %d\n", request.tag, request.id);
}

void adapter::on(fxsmedia::driver_report const& said) {
    auto const word = read_driver_word(said.text);
    telephone* const which = !word || stopping ? nullptr : telephones.of_line(word->line);
    if (which == nullptr)
        return;
    which->lifted_ms = word->what == driver_word::kind::off_hook ? now() : 0;
    which->last_key_ms = word->what == driver_word::kind::key ? now() : which->last_key_ms;
    switch (word->what) {
        case driver_word::kind::off_hook: carry_out(*which, which->state.lift(now())); break;
        case driver_word::kind::on_hook: carry_out(*which, which->state.replace(now())); break;
        case driver_word::kind::key: carry_out(*which, which->state.press(word->key, now())); break;
    }
    wake_in_time();
}

void adapter::on(fxsmedia::rtcp_report const& copy) {
    leg* const one = telephones.of_channel(copy.call);
    if (one == nullptr || !one->on_process)
        return;
    if (copy.received)
        one->heard.rtcp(true, *copy.received, now());
    if (copy.sent)
        one->heard.rtcp(false, *copy.sent, now());
}

void adapter::on(fxsmedia::new_ssrc_report const& stream) {
    if (leg* const one = telephones.of_channel(stream.call)) {
        one->heard.stream_began(now());
        channels.follow_source(*one, stream.from);
    }
}

void adapter::on(fxsmedia::tunnel_report const& packet) {
    outside.heard(packet);
}

void adapter::on(fxsmedia::confirmed const& answer) {
    telephone* const one = telephones.of_line(answer.token);
    if (one != nullptr && one->lifted_ms != 0)
        one->lift_to_tone_ms = now() - std::exchange(one->lifted_ms, 0);
}

// From the network

void adapter::take_invite(sip_msg const* request) {
    if (referrals.takes_over(request))
        return;
    if (leg* const one = calls.take(request))
        happened(*one, happening::invited);
}

void adapter::take_update(sip_msg const* request) {
    leg* const one =
        telephones.of_dialog({text_of(request->callid), text_of(request->to.tag), text_of(request->from.tag)});
    if (one == nullptr)
        sip_treply(nullptr, agent.stack(), request, 481, "Call Does Not Exist");
    else
        one->call->update(request);
}

void adapter::heard(sip_call& call, happening what) {
    leg* const one = telephones.of_call(call);
    if (one == nullptr)
        return;
    referrals.tell_referrer(*one, what);
    calls.note(*one, what);
    happened(*one, what);
}

void adapter::media_agreed(sip_call& call, media_plan const& plan) {
    if (leg* const one = telephones.of_call(call))
        calls.media_agreed(*one, plan);
}

void adapter::referred(sip_call& call, sip_msg const* request) {
    referrals.referred(call, request);
}

// To both

void adapter::happened(leg& of, happening what) {
    telephone& which = telephones.of(of);
    carry_out(which, which.state.far(what, of.number(), now()));
    wake_in_time();
}

void adapter::carry_out(telephone& which, std::vector<order> const& orders) {
    for (order const& one : orders)
        carry_out(which, one);
}

void adapter::carry_out(telephone& which, order const& one) {
    leg& each = which.legs[one.leg];
    switch (one.kind) {
        case order_kind::open:
            channels.open(each);
            channels.put_on_line(each, true);
            break;
        case order_kind::tone:
            tones.play(each, one.sound, now());
            if (which.lifted_ms != 0)
                process.confirm(which.settings.number);  // when its dial tone has begun
            break;
        case order_kind::remember: telephones.keep_features(); break;
        case order_kind::waiting_tone: tones.announce(each, now()); break;
        case order_kind::ring: ring(which, each); break;
        case order_kind::stop_ringing: ringer.stop(which.settings.number); break;
        case order_kind::howl: ringer.howl(which.settings.number); break;
        case order_kind::invite:
            calls.invite(each, one.text, one.anonymous);
            telephones.keep_features();  // it may be called again
            break;
        case order_kind::answer: calls.answer(each); break;
        case order_kind::refuse: calls.send_on(each, one.text); break;
        case order_kind::decline:
            if (each.call)
                each.call->refuse(486, "Busy Here");
            break;
        case order_kind::hang_up:
            tones.forget(each);
            calls.end(each);
            break;
        case order_kind::hold: calls.hold(each); break;
        case order_kind::resume: calls.resume(each); break;
        case order_kind::transfer: referrals.ask(each, one.text); break;
        case order_kind::follow: channels.open(each); break;
        case order_kind::connect: channels.put_on_line(each, true); break;
        case order_kind::send_key: calls.send_key(each, one.text[0]); break;
    }
}

void adapter::ring(telephone& which, leg const& one) {
    if (one.call && !ringer.ring(which.settings.number, one.call->far_number(), one.call->far_name(),
                                 distinctive_cadence(one.call->alert_pattern(), settings.cadence)))
        std::fprintf(stderr, "line %d: can't ring: %s\n", which.settings.number, std::strerror(errno));
}

}  // namespace fxsphone
