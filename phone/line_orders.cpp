#include "phone/line_orders.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace fxsphone {

void line_orders::carry_out(telephone& which, std::vector<order> const& orders) {
    for (order const& one : orders)
        carry_out(which, one);
}

void line_orders::carry_out(telephone& which, order const& one) {
    leg& each = which.legs[one.leg];
    switch (one.kind) {
        case order_kind::open:
            channels.open(each);
            channels.put_on_line(each, true);
            break;
        case order_kind::tone: play(which, each, one.sound); break;
        case order_kind::remember: telephones.keep_features(); break;
        case order_kind::waiting_tone: tones.announce(each, now()); break;
        case order_kind::ring: ring(each); break;
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

void line_orders::play(telephone const& which, leg const& one, tone sound) {
    tones.play(one, sound, now());
    if (which.lifted_ms != 0)
        process.confirm(which.settings.number);  // when its dial tone has begun
}

void line_orders::ring(leg const& one) const {
    if (one.call && !ringer.ring(one.line, one.call->far_number(), one.call->far_name(),
                                 distinctive_cadence(one.call->alert_pattern(), usual_cadence)))
        std::fprintf(stderr, "line %d: can't ring: %s\n", one.line, std::strerror(errno));
}

}  // namespace fxsphone
