#include <algorithm>
#include <cerrno>

#include "lib/protocol.h"
#include "lib/tlv.h"
#include "tests/sim/driver.h"

namespace sim {

using namespace protocol;

void driver::open_a_call(int) {
    int const line = dice.below(line_count);
    if (legs_on(line) < 2 && dice.chance(700))
        open_far_call(line);
    else
        open_local_call();
}

str driver::any_xr_mode() {
    static constexpr char const* modes[] = {
        "", "rcvr-rtt", "pkt-rcpt-times=400 voip-metrics",
        "pkt-loss-rle pkt-dup-rle=300 pkt-rcpt-times rcvr-rtt stat-summary voip-metrics"};
    return str(modes[dice.below(4)]);
}

void driver::change_codec(int index) {
    leg& l = legs[index];
    if (l.to_leg && l.keyed)
        return;  // the other channel would have to be keyed anew at the same moment
    if (dice.chance(500) || l.to_leg) {
        l.codec = dice.below(7);
        configure(index, true, false, true);
        if (l.keyed)
            fars[index].rekey(l.out, l.in, fars[index].planned().process_sequence);
        if (l.to_leg)
            unsteady(l.partner);
    } else if (format const& f = formats[dice.below(7)];
               f.codec != codec_number::gsm || fars[index].planned().ptime_ms % 20 == 0) {
        fars[index].talk_in(f);
        unsteady(index);
    }
}

void driver::rekey(int index) {
    leg& l = legs[index];
    if (l.to_leg || !l.keyed)
        return;
    l.in = random_keys(l.in.tag_bytes);
    l.out = random_keys(l.in.tag_bytes);
    configure(index, false, false, true);
    fars[index].rekey(l.out, l.in, fars[index].planned().process_sequence);
}

/// The call goes on with another party at another address.
void driver::move_far(int index) {
    if (legs[index].to_leg || legs[index].tcp)
        return;
    std::uint32_t const sequence = fars[index].planned().process_sequence;
    legs[index].changing = true;
    fars[index].end();
    begin_far(index, sequence);
    configure(index, false, true, false);
    unsteady(index, 2 * second);
}

void driver::hold(int index) {
    leg const& l = legs[index];
    int const line = l.line == no_line ? dice.below(line_count) : no_line;
    if (line != no_line && legs_on(line) > (l.to_leg ? 0 : 1))
        return;
    put_on_line(index, line);
    all_unsteady(5 * second);
}

void driver::dial(int index) {
    leg& l = legs[index];
    if (l.line == no_line)
        return;
    int const digits = dice.between(1, 5), before = fars[index].digits;
    std::int64_t const duration = digits * 500 * ms;
    for (int i = 0; i < digits; i++)
        call_command(cmd_dtmf::tag, index, cmd_dtmf::digit, dice.below(12));
    l.sends.irregular(duration / (10 * ms) + 10);
    all_unsteady(duration + 2 * second);
    bool const seen = !l.to_leg && l.clean && !l.tcp && !l.doubtful && l.sends.events();
    run(duration + 800 * ms);
    if (seen && fars[index].digits - before != digits)
        unlawful("digits that did not arrive", fars[index].digits - before - digits);
}

/// What strangers and call control send into the middle of a call.
void driver::disturb(int index) {
    leg& l = legs[index];
    endpoint const near = l.near().with_port(l.rtp_port + dice.below(2));
    endpoint const stranger = l.six ? v6(99, 4000) : v4(198, 51, 100, 1, 4000);
    auto const tone = [&](int kind, int set) {
        call_command(cmd_playback::tag, index,
                     cmd_get_tlv_short(cmd_playback::tone_kind, kind) + cmd_get_tlv_short(cmd_playback::tone_set, set));
    };
    switch (dice.below(6)) {
        case 0: w->deliver(stranger, near, std::string_view("\x00\x01\x00\x00\x21\x12\xA4\x42xxxxxxxxxxxx", 20)); break;
        case 1: w->deliver(stranger, near, "\x10\x00zzZRTPxxxxxxxx"); break;
        case 2:
        case 3: {
            bytes junk = random_bytes(dice.below(300));
            if (!junk.empty() && !l.clean)  // else a gap might let it take over
                junk[0] &= 0x3F;
            w->deliver(stranger, l.near(), junk);
            break;
        }
        case 4:
            tone(dice.below(8), dice.below(3));
            run(dice.between(100, unusual_too ? 300 : 2000) * ms);
            tone(0, 0);
            unsteady(index);
            break;
        default: command(cmd_led::tag, cmd_led::pattern, dice.below(5)); break;
    }
    run(20 * ms);
}

void driver::fail_something(int) {
    static constexpr struct {
        call which;
        int error;
    } faults[] = {{call::socket, EMFILE}, {call::bind, EADDRINUSE}, {call::open, ENODEV}, {call::send, ENOBUFS},
                  {call::ioctl, EIO},     {call::write, EAGAIN},    {call::read, EIO},    {call::receive, EAGAIN}};
    auto const& f = faults[dice.below(8)];
    bool const opens = f.which == call::socket || f.which == call::bind || f.which == call::open;
    failures_until = w->now() + 10 * second;
    for (leg& l : legs)  // it ends a connection
        l.doubtful |= l.tcp && (f.which == call::send || f.which == call::receive);
    w->fail(f.which, f.error, opens ? dice.between(1, 40) : dice.between(1, 5));
    if (opens)
        open_far_call(dice.below(line_count));
    run(200 * ms);
    w->end_faults();
    run(1200 * ms);
    all_unsteady(2 * second);
    for (int i = 0; i < far_count; i++) {
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
    command(cmd_ntp_offset::tag, cmd_get_tlv_long(cmd_ntp_offset::seconds, static_cast<int>(day_s - process_s)));
    run(ms);
    ntp_known = true;
}

void driver::step_the_clock(int) {
    static constexpr int steps_s[] = {1, 3600, 86400, 1000000};
    int const step = steps_s[dice.below(4)] * (dice.chance(500) ? 1 : -1);
    w->set_time_of_day(w->time_of_day() + step * second + dice.below(1000) * ms);
    ntp_known = false;
    all_unsteady(2 * second);
    if (dice.chance(700))
        set_ntp_offset();
}

void driver::set_log_level(int) {
    command(cmd_log_level::tag, cmd_log_level::level, dice.chance(100) ? 9 : dice.between(0, 7));
}

void driver::use_other_devices(int) {
    w->driver_text("off hook\r\nflash\n");
    w->signal_bytes("\x01\x02\x03");
    command(cmd_signal::tag, cmd_get_tlv_str(cmd_signal::data, str("signal")));
    command(cmd_reset_base::tag, cmd_reset_base::command, 3);
}

void driver::hang_up_a_device(int) {
    int const device = dice.below(line_count + 1);
    lines_dead_until = w->now() + 3 * second;
    w->hang_up(device);
    run(dice.between(10, 300) * ms);
    w->hang_up(device, false);
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
    run(dice.between(1, unusual_too ? 2 : 15) * second);
    close_leg(index);
}

}  // namespace sim
