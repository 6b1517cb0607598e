#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "phone/adapter.h"

/// What the lines order, carried out.
namespace fxsphone {

namespace {

constexpr int stutter_ms = 100;  // and as long a pause, ten times: the recalled dial tone of ITU-T E.180 supplement 2
constexpr int stutters = 20;
constexpr int waiting_tone_ms = 300;  // as most countries have it, ITU-T E.180 supplement 2

}  // namespace

void adapter::carry_out(telephone& which, std::vector<order> const& orders) {
    for (order const& one : orders)
        carry_out(which, one);
}

void adapter::carry_out(telephone& which, order const& one) {
    leg& each = which.legs[one.leg];
    switch (one.kind) {
        case order_kind::open: open(each, true); break;
        case order_kind::tone:
            which.stutter_leg = -1;
            if (one.sound == tone::stutter)
                begin_stutter(which, each);
            else
                play(each, one.sound);
            if (which.lifted_ms != 0)
                process.confirm(which.settings.number);  // when its dial tone has begun
            break;
        case order_kind::remember: remember(); break;
        case order_kind::waiting_tone: start_waiting_tone(which, each); break;
        case order_kind::ring: ring(which, each); break;
        case order_kind::stop_ringing: ringer.stop(which.settings.number); break;
        case order_kind::howl: ringer.howl(which.settings.number); break;
        case order_kind::invite:
            each.to_invite = one.text;
            each.anonymous = one.anonymous;
            port_known(each);
            break;
        case order_kind::answer:
            each.to_answer = true;
            port_known(each);
            break;
        case order_kind::refuse:
            if (each.call && !one.text.empty())
                each.call->redirect(one.text);
            else if (each.call)
                each.call->refuse(480, "Temporarily Unavailable");
            break;
        case order_kind::decline:
            if (each.call)
                each.call->refuse(486, "Busy Here");
            break;
        case order_kind::hang_up:
            which.waiting_leg = which.waiting_leg == one.leg ? -1 : which.waiting_leg;
            which.stutter_leg = which.stutter_leg == one.leg ? -1 : which.stutter_leg;
            end(each);
            break;
        case order_kind::hold:
            put_on_line(each, false);
            each.held = true;
            each.speaks_since_ms = 0;
            if (each.call)
                each.call->hold(true);
            break;
        case order_kind::resume:
            put_on_line(each, true);
            each.held = false;
            if (each.call)
                each.call->hold(false);
            break;
        case order_kind::transfer: transfer(which, each, one.text); break;
        case order_kind::follow: open(each, false); break;
        case order_kind::connect: put_on_line(each, true); break;
        case order_kind::send_key:
            if (which.settings.keys == key_transport::info && each.call)
                each.call->send_info(one.text[0]);
            else if (which.settings.keys != key_transport::none)
                send_key(each, one.text[0]);
            break;
    }
}

void adapter::open(leg& one, bool on_line) {
    one.on_process = true;
    one.rtp_port = 0;
    one.heard = {};
    process.send(fxsmedia::open_command{.call = one.channel, .call_id = "fxsphone"});
    if (on_line)
        put_on_line(one, true);
}

/// Once for each call.
void adapter::write_record(leg& one) {
    if (!one.record)
        return;
    if (one.call)
        one.record->code = one.call->last_code();
    one.record->quality = one.heard.quality();
    std::puts(to_json(*one.record, now()).c_str());
    std::fflush(stdout);
    one.record.reset();
}

/// In whatever state it is; nothing when there is neither a call nor a channel.
void adapter::end(leg& one) {
    write_record(one);
    one.asked.reset();
    one.follows.reset();
    one.call.reset();
    one.media.reset();
    one.to_invite.clear();
    one.invite_headers.clear();
    one.to_answer = false;
    one.rtp_port = 0;
    one.held = false;
    one.speaks_since_ms = 0;
    if (one.on_process)
        process.send(fxsmedia::end_command{.call = one.channel});
    one.on_process = false;
}

std::unique_ptr<session_description> adapter::describe_media(leg const& one, bool over_ipv6) {
    telephone_settings const& own = telephone_of(one.line)->settings;
    auto media = std::make_unique<session_description>(settings.ip_for(over_ipv6), own.codecs, own.ptime_ms, own.srtp);
    media->set_xr(own.xr);
    return media;
}

void adapter::begin_call(leg& one, sip_call_direction direction, bool over_ipv6) {
    std::uint32_t const drawn = rand_u32();
    std::memcpy(one.ssrc, &drawn, sizeof one.ssrc);
    one.media = describe_media(one, over_ipv6);
    one.srtp.reset();
    one.offered.reset();
    one.source.reset();
    call_owner& owner = *this;
    one.call = std::make_unique<sip_call>(owner, *one.media, telephone_of(one.line)->settings.login);
    one.record = call_record{.line = one.line, .direction = direction, .begun_ms = now()};
}

/// Does what had to wait for the process's answer.
void adapter::port_known(leg& one) {
    telephone* const which = telephone_of(one.line);
    if (one.rtp_port == 0 || which == nullptr)
        return;
    if (!one.to_invite.empty())
        invite(*which, one);
    if (std::exchange(one.to_answer, false))
        answer(*which, one);
}

void adapter::invite(telephone& from, leg& one) {
    std::string const to = std::exchange(one.to_invite, "");
    auto const& registrar = from.settings.registrar;
    std::string const own = "sip:" + from.settings.user + "@" + (registrar ? registrar->domain : settings.own_domain());
    std::string const route = registrar && !agent.is_here(to) ? registrar->way_out() : "";
    bool const over_ipv6 = (route.empty() ? to : route).find('[') != std::string::npos;  // "sip:100@[2001:db8::1]"
    begin_call(one, sip_call_direction::outgoing, over_ipv6);
    one.media->set_port(one.rtp_port);
    one.record->far = to;
    one.record->lift_to_tone_ms = from.lift_to_tone_ms;
    one.record->last_key_ms = from.last_key_ms;
    bool const hidden = std::exchange(one.anonymous, false);
    std::string const headers = std::exchange(one.invite_headers, "") + (hidden ? "Privacy: id\r\n" : "");
    if (one.call->invite(agent.door(), to, hidden ? "sip:anonymous@anonymous.invalid" : own,
                         hidden ? "Anonymous" : from.settings.display_name, hidden ? "anonymous" : from.settings.user,
                         route, headers))
        return;
    std::fprintf(stderr, "line %d: can't call %s\n", one.line, to.c_str());
    heard(*one.call, happening::far_fails);
}

void adapter::answer(telephone& at, leg& one) {
    if (!one.call || !one.record)  // over already
        return;
    if (at.waiting_leg == one.channel % 2) {
        at.waiting_leg = -1;
        play(one, tone::none);
    }
    one.media->set_port(one.rtp_port);
    put_on_line(one, true);
    one.record->answered_ms = now();
    if (!one.call->answer())
        heard(*one.call, happening::far_fails);
}

void adapter::play(leg const& one, tone sound) {
    if (sound == tone::none)
        process.send(fxsmedia::play_command{.call = one.channel});
    else
        process.send(
            fxsmedia::play_command{.call = one.channel, .kind = static_cast<int>(sound), .set = settings.tone_set});
}

void adapter::put_on_line(leg const& one, bool on) {
    if (on)
        process.send(fxsmedia::tdm_command{.call = one.channel, .line = one.line});
    else
        process.send(fxsmedia::tdm_command{.call = one.channel});
}

void adapter::send_key(leg const& one, char key) {
    constexpr std::string_view keys = "0123456789*#";
    std::size_t const event = keys.find(key);
    if (event != keys.npos)
        process.send(fxsmedia::dtmf_command{.call = one.channel, .digit = static_cast<int>(event)});
}

/// The second call's channel plays it: what a line hears is the sum of its two.
void adapter::start_waiting_tone(telephone& which, leg& one) {
    which.waiting_leg = one.channel % 2;
    which.waiting_tone_end = now() + waiting_tone_ms;
    put_on_line(one, true);
    play(one, tone::dial);
}

/// The process has no such tone: its dial tone is switched.
void adapter::begin_stutter(telephone& which, leg const& one) {
    which.stutter_leg = one.channel % 2;
    which.stutters_left = stutters;
    which.stutter_due = now() + stutter_ms;
    play(one, tone::dial);
}

void adapter::go_on_stuttering(telephone& which) {
    which.stutters_left--;
    play(which.legs[which.stutter_leg], which.stutters_left % 2 == 0 ? tone::dial : tone::none);
    which.stutter_due += stutter_ms;
    if (which.stutters_left == 0)
        which.stutter_leg = -1;
}

void adapter::ring(telephone& which, leg const& one) {
    if (one.call && !ringer.ring(which.settings.number, one.call->far_number(), one.call->far_name()))
        std::fprintf(stderr, "line %d: can't ring: %s\n", which.settings.number, std::strerror(errno));
}

}  // namespace fxsphone
