#include "phone/adapter.h"

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
      orders(settings, process, telephones, channels, tones, calls, referrals),
      led(process),
      timer([this] {
          pass_time();
          wake_in_time();
      }) {}

adapter::~adapter() {
    if (process.fd() >= 0)
        fd_close(process.fd());
}

std::string adapter::start() {
    std::string problem = listen();
    if (problem.empty() && !process.start(settings.process_port))
        problem = std::string("no socket for the media process: ") + std::strerror(errno);
    if (problem.empty())
        problem = watch_process();
    if (problem.empty())
        problem = timer.start();
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

std::string adapter::watch_process() {
    auto const readable = [](int, void* arg) {
        auto* const self = static_cast<adapter*>(arg);
        self->process.serve();
        self->wake_in_time();
    };
    int const failed = fd_listen(process.fd(), FD_READ, readable, this);
    return failed == 0 ? "" : std::strerror(failed);
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
            orders.carry_out(*one, {{.kind = order_kind::stop_ringing}});
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

void adapter::pass_time() {
    process.serve();
    outside.pass_time(now());
    for (auto& one : telephones) {
        orders.carry_out(*one, one->state.pass_time(now()));
        for (leg& each : one->legs)
            if (calls.end_in_silence(each))
                happened(each, happening::far_fails);
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
            due = std::min(due, calls.silence_ends_ms(each));
        due = std::min(due, tones.due_ms(one->settings.number));
    }
    return due;
}

void adapter::wake_in_time() {
    if (settings.led && !stopping)
        led.show(telephones, registrars.all_hold(), now());
    std::int64_t const due = next_due_ms();
    if (due != INT64_MAX && !stopping)
        timer.wake_in(due - now());
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
        orders.carry_out(*one, one->state.restart(now()));
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
        case driver_word::kind::off_hook: orders.carry_out(*which, which->state.lift(now())); break;
        case driver_word::kind::on_hook: orders.carry_out(*which, which->state.replace(now())); break;
        case driver_word::kind::key: orders.carry_out(*which, which->state.press(word->key, now())); break;
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

// To the lines

void adapter::happened(leg& of, happening what) {
    telephone& which = telephones.of(of);
    orders.carry_out(which, which.state.far(what, of.number(), now()));
    wake_in_time();
}

}  // namespace fxsphone
