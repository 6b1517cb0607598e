#include "tests/sim/driver.h"

#include <algorithm>
#include <cerrno>

#include "lib/tlv.h"

namespace sim {

void driver::change_codec(int index) {
    leg& l = legs[index];
    if (l.to_leg && l.keyed)
        return;  // the other channel would have to be keyed anew at the same moment
    if (dice.chance(500) || l.to_leg) {
        l.codec = dice.below(7);
        configure(index, true, false, false);
        if (l.keyed)
            fars[index].rekey(l.out, l.in, fars[index].planned().process_sequence);
        if (l.to_leg)
            unsteady(l.partner);
    } else if (format const& f = formats[dice.below(7)];
               f.codec != codec::gsm_full_rate || fars[index].planned().ptime_ms % 20 == 0) {
        fars[index].talk_in(f);
        unsteady(index);
    }
}

void driver::rekey(int index) {
    leg& l = legs[index];
    if (l.to_leg || !l.keyed)
        return;
    int const tag = l.out.tag_bytes;
    l.in = random_keys();
    l.out = random_keys();
    l.in.tag_bytes = l.out.tag_bytes = tag;
    configure(index, false, false, true);
    fars[index].rekey(l.out, l.in, fars[index].planned().process_sequence);
}

/// The call goes on with another party at another address.
void driver::move_far(int index) {
    if (legs[index].to_leg || legs[index].tcp)
        return;
    std::uint32_t const sequence = fars[index].planned().process_sequence;
    fars[index].end();
    begin_far(index, sequence);
    configure(index, false, true, false);
    unsteady(index, 2 * second);
}

void driver::hold(int index) {
    leg& l = legs[index];
    if (l.line != no_line) {
        call_command(18, index, cmd_get_tlv_short(18, 4));
        l.line = no_line;
    } else {
        int const line = dice.below(line_count);
        if (legs_on(line) > (l.to_leg ? 0 : 1))
            return;
        call_command(18, index, cmd_get_tlv_short(18, line));
        l.line = line;
    }
    for (int i = 0; i < far_count; i++)
        if (legs[i].open)
            unsteady(i, 5 * second);
}

void driver::dial(int index) {
    leg& l = legs[index];
    if (l.line == no_line)
        return;
    int const digits = dice.between(1, 5);
    int const before = fars[index].digits;
    for (int i = 0; i < digits; i++)
        call_command(10, index, cmd_get_tlv_short(19, dice.below(12)));
    l.sends.irregular(digits * 500 * ms / (10 * ms) + 10);
    for (int i = 0; i < far_count; i++)
        unsteady(i, digits * 500 * ms + 2 * second);
    bool const seen = !l.to_leg && l.clean && !l.tcp && !l.doubtful && l.sends.events();
    run(digits * 500 * ms + 800 * ms);
    if (seen && fars[index].digits - before != digits)
        violated("digits that did not arrive", fars[index].digits - before - digits);
}

/// What strangers and call control send into the middle of a call.
void driver::disturb(int index) {
    leg& l = legs[index];
    endpoint const near = (l.six ? device_v6 : device_v4).with_port(l.rtp_port + dice.below(2));
    endpoint const stranger = l.six ? v6(99, 4000) : v4(198, 51, 100, 1, 4000);
    switch (dice.below(6)) {
        case 0:
            w->deliver(stranger, near, std::string_view("\x00\x01\x00\x00\x21\x12\xA4\x42xxxxxxxxxxxx", 20));
            break;
        case 1: w->deliver(stranger, near, "\x10\x00zzZRTPxxxxxxxx"); break;
        case 2:
        case 3: {
            bytes junk;
            for (int n = dice.below(300); n > 0; n--)
                junk += static_cast<char>(dice.word());
            if (!junk.empty() && !l.clean)  // else a gap might let it take over
                junk[0] &= 0x3F;
            w->deliver(stranger, near.with_port(l.rtp_port), junk);
            break;
        }
        case 4:
            call_command(12, index,
                         cmd_get_tlv_short(28, dice.below(8)) + cmd_get_tlv_short(29, dice.below(3)));
            run(dice.between(100, 2000) * ms);
            call_command(12, index, cmd_get_tlv_short(28, 0) + cmd_get_tlv_short(29, 0));
            unsteady(index);
            break;
        default: command(22, cmd_get_tlv_short(27, dice.below(5))); break;
    }
    run(20 * ms);
}

void driver::fail_something(int) {
    static constexpr struct {
        call which;
        int error;
    } faults[] = {{call::socket, EMFILE}, {call::bind, EADDRINUSE}, {call::open, ENODEV},
                  {call::send, ENOBUFS},  {call::ioctl, EIO},       {call::write, EAGAIN},
                  {call::read, EIO},      {call::receive, EAGAIN}};
    auto const& f = faults[dice.below(8)];
    bool const opens = f.which == call::socket || f.which == call::bind || f.which == call::open;
    failures_until = w->now() + 10 * second;
    for (leg& l : legs)  // it ends a connection
        l.doubtful |= l.tcp && (f.which == call::send || f.which == call::receive);
    w->fail(f.which, f.error, opens ? dice.between(1, 40) : dice.between(1, 5));
    if (opens)
        open_far_call(dice.below(line_count));
    run(200 * ms);
    w->fail(f.which, 0, 0);
    run(1200 * ms);
    for (int i = 0; i < far_count; i++) {
        if (!legs[i].open)
            continue;
        unsteady(i, 2 * second);
        legs[i].last_report = -1;
        legs[i].opened = w->now();
        legs[i].sends.forget();
        if (legs[i].doubtful)
            close_leg(i);
    }
    failures_until = w->now();
}

void driver::set_ntp_offset() {
    auto const process_s = static_cast<std::uint32_t>((w->now() / (10 * ms) + chosen.clock_start) / 100);
    auto const day_s = static_cast<std::uint32_t>(w->time_of_day() / second);
    command(13, cmd_get_tlv_long(20, static_cast<int>(day_s - process_s)));
    run(ms);
    ntp_known = true;
}

void driver::step_the_clock(int) {
    static constexpr int steps_s[] = {1, 3600, 86400, 1000000};
    int const step = steps_s[dice.below(4)] * (dice.chance(500) ? 1 : -1);
    w->set_time_of_day(w->time_of_day() + step * second + dice.below(1000) * ms);
    ntp_known = false;
    for (int i = 0; i < far_count; i++)
        unsteady(i, 2 * second);
    if (dice.chance(700))
        set_ntp_offset();
}

void driver::set_log_level(int) {
    command(7, cmd_get_tlv_short(1, dice.chance(100) ? 9 : dice.between(0, 7)));
}

void driver::use_other_devices(int) {
    w->driver_text("off hook\r\nflash\n");
    w->signal_bytes("\x01\x02\x03");
    command(8, cmd_get_tlv_str(15, str("signal")));
}

void driver::hang_up_a_line(int) {
    int const line = dice.below(line_count);
    lines_dead_until = w->now() + 3 * second;
    w->hang_up(line);
    run(dice.between(10, 300) * ms);
    w->hang_up(line, false);
    for (leg& l : legs)
        l.sends.irregular(3);
}

void driver::far_end_dials(int index) {
    if (legs[index].to_leg || legs[index].line == no_line)
        return;
    for (int digit = 0; digit < 3; digit++)
        fars[index].send_event(dice.below(12));
    unsteady(index, 3 * second);
}

/// The far end takes nothing any more, or closes; the call is over.
void driver::break_stream(int index) {
    if (!legs[index].tcp)
        return;
    legs[index].doubtful = true;
    if (dice.chance(500))
        w->stream_stall(fars[index].media_stream(), true);
    else
        w->stream_close(fars[index].media_stream());
    run(dice.between(1, 15) * second);
    close_leg(index);
}

void driver::open_a_call(int) {
    int const line = dice.below(line_count);
    if (legs_on(line) < 2 && dice.chance(700))
        open_far_call(line);
    else
        open_local_call();
}

}  // namespace sim
