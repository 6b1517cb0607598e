#include "phone/call_control.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "phone/libre.h"

namespace fxsphone {

// Calls that come in

leg* call_control::take(sip_msg const* request) {
    telephone* const called = telephones.of_user(text_of(request->uri.user));
    if (called == nullptr || !channels.connected()) {
        refuse(request, called);
        return nullptr;
    }
    if (sent_elsewhere(*called, request))
        return nullptr;
    auto const free = called->state.free_leg();
    if (!free) {
        refuse(request, called);
        return nullptr;
    }
    leg& one = called->legs[*free];
    begin(one, sip_call_direction::incoming, sa_af(&request->src) == AF_INET6);
    if (!one.call->take(agent, request, called->settings.user)) {
        one.record.reset();
        end(one);
        return nullptr;
    }
    one.record->far = one.call->far_address();
    if (one.call->far_number() != "anonymous") {  // RFC 3323 section 4.1.1.3: nobody can be called there
        called->state.called_by(one.call->far_address());
        telephones.keep_features();
    }
    channels.open(one);
    return &one;
}

void call_control::refuse(sip_msg const* request, telephone const* called) {
    if (called == nullptr)
        sip_treply(nullptr, agent.stack(), request, 404, "Not Found");
    else if (channels.connected())
        sip_treply(nullptr, agent.stack(), request, 486, "Busy Here");
    else
        sip_treply(nullptr, agent.stack(), request, 503, "Service Unavailable");
}

/// Its owner has it forwarded.
bool call_control::sent_elsewhere(telephone const& called, sip_msg const* request) {
    std::string const to = called.state.forward_to();
    if (to.empty())
        return false;
    sip_treplyf(nullptr, nullptr, agent.stack(), request, false, 302, "Moved Temporarily",
                "Contact: <%s>\r\nContent-Length: 0\r\n\r\n", to.c_str());
    return true;
}

void call_control::send_on(leg const& one, std::string const& to) {
    if (one.call && !to.empty())
        one.call->redirect(to);
    else if (one.call)
        one.call->refuse(480, "Temporarily Unavailable");
}

void call_control::answer(leg& one) {
    one.to_answer = true;
    port_known(one);
}

void call_control::send_answer(leg& one) {
    if (!one.call || !one.record)  // over already
        return;
    tones.end_announcement(one);
    place(one, *one.media);
    channels.put_on_line(one, true);
    one.record->answered_ms = now();
    if (!one.call->answer())
        owner.heard(*one.call, happening::far_fails);
}

// Calls of our own

void call_control::invite(leg& one, std::string const& to, bool anonymous) {
    one.to_invite = to;
    one.anonymous = anonymous;
    port_known(one);
}

void call_control::send_invite(telephone& from, leg& one) {
    std::string const to = std::exchange(one.to_invite, "");
    auto const& registrar = from.settings.registrar;
    std::string const own = "sip:" + from.settings.user + "@" + (registrar ? registrar->domain : settings.own_domain());
    std::string const route = registrar && !agent.is_here(to) ? registrar->way_out() : "";
    bool const over_ipv6 = (route.empty() ? to : route).find('[') != std::string::npos;  // "sip:100@[2001:db8::1]"
    begin(one, sip_call_direction::outgoing, over_ipv6);
    place(one, *one.media);
    one.record->far = to;
    one.record->lift_to_tone_ms = from.lift_to_tone_ms;
    one.record->last_key_ms = from.last_key_ms;
    bool const hidden = std::exchange(one.anonymous, false);
    std::string const headers = std::exchange(one.invite_headers, "") + (hidden ? "Privacy: id\r\n" : "");
    if (one.call->invite(agent, {.to = to,
                                 .from = hidden ? "sip:anonymous@anonymous.invalid" : own,
                                 .from_name = hidden ? "Anonymous" : from.settings.display_name,
                                 .user = hidden ? "anonymous" : from.settings.user,
                                 .route = route,
                                 .headers = headers}))
        return;
    std::fprintf(stderr, "line %d: can't call %s\n", one.line, to.c_str());
    owner.heard(*one.call, happening::far_fails);
}

// Both

void call_control::port_known(leg& one) {
    if (one.rtp_port == 0)
        return;
    if (!one.to_invite.empty())
        send_invite(telephones.of(one), one);
    if (std::exchange(one.to_answer, false))
        send_answer(one);
}

void call_control::begin(leg& one, sip_call_direction direction, bool over_ipv6) {
    channels.begin_stream(one);
    one.media = describe_media(one, over_ipv6);
    one.call = make_call(one, *one.media);
    one.record = call_record{.line = one.line, .direction = direction, .begun_ms = now()};
}

std::unique_ptr<session_description> call_control::describe_media(leg const& one, bool over_ipv6) const {
    telephone_settings const& own = telephones.of(one).settings;
    auto media = std::make_unique<session_description>(settings.ip_for(over_ipv6), own.codecs, own.ptime_ms, own.srtp);
    media->set_xr(own.xr);
    return media;
}

void call_control::place(leg const& one, session_description& words) {
    words.set_port(one.rtp_port);
    if (one.outside_rtp)
        words.set_outside(*one.outside_rtp, one.outside_rtcp);
}

std::unique_ptr<sip_call> call_control::make_call(leg const& one, session_description& words) const {
    return std::make_unique<sip_call>(owner, words, telephones.of(one).settings.login, settings.session_expires_s);
}

void call_control::media_agreed(leg& one, media_plan const& plan) {
    if (one.record)
        one.record->codec = one.media->codec_name();
    one.speaks_since_ms = plan.rtp && !one.held ? now() : 0;
    one.heard.codec_chosen(plan.send.codec);
    channels.follow_plan(one, plan, telephones.of(one).settings.keys != key_transport::tones);
}

void call_control::send_key(leg const& one, char key) {
    key_transport const way = telephones.of(one).settings.keys;
    if (way == key_transport::info && one.call)
        one.call->send_info(key);
    else if (way != key_transport::none)
        channels.send_key(one, key);
}

void call_control::hold(leg& one) {
    channels.put_on_line(one, false);
    one.held = true;
    one.speaks_since_ms = 0;
    if (one.call)
        one.call->hold(true);
}

void call_control::resume(leg& one) {
    channels.put_on_line(one, true);
    one.held = false;
    if (one.call)
        one.call->hold(false);
}

void call_control::end(leg& one) {
    write_record(one);
    one.asked.reset();
    one.follows.reset();
    one.call.reset();
    one.media.reset();
    one.to_invite.clear();
    one.invite_headers.clear();
    one.to_answer = false;
    one.held = false;
    one.speaks_since_ms = 0;
    channels.close(one);
}

// Calls without media

std::int64_t call_control::silence_ends_ms(leg const& one) const {
    bool const speaks = settings.media_timeout_ms != 0 && one.record && one.record->answered_ms != 0 &&
                        one.speaks_since_ms != 0 && !one.record->media_lost;
    return speaks ? std::max(one.speaks_since_ms, one.heard.last_heard_ms()) + settings.media_timeout_ms : INT64_MAX;
}

bool call_control::end_in_silence(leg& one) {
    if (silence_ends_ms(one) > now())
        return false;
    std::fprintf(stderr, "line %d: nothing is received from %s\n", one.line, one.record->far.c_str());
    one.record->media_lost = true;
    if (!settings.media_timeout_ends)
        return false;
    one.record->ended_by = "media";
    write_record(one);
    one.call.reset();
    return true;
}

// The record

void call_control::note(leg& one, happening what) {
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

void call_control::write_record(leg& one) {
    if (!one.record)
        return;
    if (one.call)
        one.record->code = one.call->last_code();
    one.record->quality = one.heard.quality();
    std::puts(to_json(*one.record, now()).c_str());
    std::fflush(stdout);
    one.record.reset();
}

}  // namespace fxsphone
