// Simulated days of telephony: a seeded driver opens and ends calls, changes what can be changed, loses, doubles,
// reorders and delays packets, steps the clocks, and checks all the way what the process does.
//
//     fxs_years [--seed N] [--days D] [--verbose]

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "lib/tlv.h"
#include "tests/sim/exchange.h"

namespace {

using sim::leg, sim::no_line, sim::to_str, sim::ms, sim::second;

constexpr std::int64_t minute = 60 * second, hour = 60 * minute, day = 24 * hour;

/// What repeats a violation.
struct {
    unsigned long long seed = 1;
    double days = 1;
    sim::world* world = nullptr;
} run_of;

class driver final : public sim::exchange {
public:
    driver(std::uint64_t seed, bool verbose_);
    void live(double days);

private:
    void episode();
    void act();

    // What can happen, to a leg or to no matter which.
    void open_a_call(int);
    void change_codec(int index);
    void rekey(int index);
    void move_far(int index);
    void hold(int index);
    void dial(int index);
    void disturb(int index);
    void far_end_dials(int index);
    void break_stream(int index);
    void close_leg(int index);
    void fail_something(int);
    void hang_up_a_line(int);
    void step_the_clock(int);
    void set_log_level(int);
    void use_other_devices(int);

    void open_far_call(int line);
    void open_local_call();
    int open_leg(int line);
    void configure(int index, bool with_codec, bool with_destination, bool with_keys);
    void begin_far(int index, std::uint32_t process_sequence);
    void set_ntp_offset();
    int some_leg() {
        int const first = dice.below(sim::far_count);
        for (int i = 0; i < sim::far_count; i++)
            if (legs[(first + i) % sim::far_count].open)
                return (first + i) % sim::far_count;
        return -1;
    }
    int legs_on(int line) const {
        return static_cast<int>(std::count_if(std::begin(legs), std::end(legs),
                                              [&](leg const& l) { return l.open && l.line == line; }));
    }

    sim::random_source dice;
    sim::settings chosen;
};

ip_port to_ip_port(sim::endpoint const& e) {
    return ip_port(to_str(e.address_bytes()), e.port);
}

// ---- actions

int driver::open_leg(int line) {
    int index = 0;
    while (index < sim::far_count && legs[index].open)
        index++;
    if (index == sim::far_count)
        return -1;
    opened_port = 0;
    call_command(
        16, index,
        cmd_get_tlv_str(22, str("call")) + cmd_get_tlv_short(11, 20000) + cmd_get_tlv_short(12, 60000));
    run(5 * ms);
    if (opened_port == 0) {
        if (w->now() > failures_until)
            sim::violated("a call that could not be opened");
        return -1;
    }
    leg& l = legs[index] = leg();
    l.open = true;
    l.rtp_port = opened_port;
    l.opened = w->now();
    l.line = line;
    l.doubtful = w->now() < failures_until;
    calls++;
    return index;
}

void driver::close_leg(int index) {
    leg& l = legs[index];
    if (!l.open)
        return;
    talk_ns += w->now() - l.opened;
    l.closing = true;
    call_command(4, index, str::null);
    run(ms);
    l.open = false;
    if (!l.to_leg)
        fars[index].end();
    else
        close_leg(l.partner);
    for (int i = 0; i < sim::far_count; i++)
        if (legs[i].open)
            unsteady(i);
}

sim::protection random_keys(sim::random_source& dice) {
    sim::protection p;
    for (int i = 0; i < 30; i++)
        p.key += static_cast<char>(dice.word());
    p.tag_bytes = dice.chance(500) ? 10 : 4;
    return p;
}

/// One media command with these groups.
void driver::configure(int index, bool with_codec, bool with_destination, bool with_keys) {
    leg& l = legs[index];
    str fields;
    run(sim::us);  // nothing is left that would be sent with the old settings
    if (with_codec) {
        sim::format const& f = sim::formats[l.codec];
        bool const pair_needed = f.codec == codec::gsm_full_rate;
        static constexpr int packet_times[] = {10, 20, 30, 40, 60};
        int const ptime = pair_needed ? 20 * dice.between(1, 3) : packet_times[dice.below(5)];
        bool const events = dice.chance(700);
        std::uint32_t const ssrc = dice.word() | 1;
        fields += cmd_get_tlv_str(
            6, str(static_cast<unsigned char>(f.payload_type), static_cast<unsigned char>(f.codec)));
        for (sim::format const& each : sim::formats)
            fields += cmd_get_tlv_str(16, str(static_cast<unsigned char>(each.codec),
                                              static_cast<unsigned char>(each.payload_type)));
        if (events)
            fields += cmd_get_tlv_str(19, str(static_cast<unsigned char>(sim::event_type), 1));
        fields += cmd_get_tlv_short(17, ptime) + cmd_get_tlv_long(33, static_cast<int>(ssrc));
        l.sends.expect(f, ptime, events, ssrc);
        if (l.keyed && !with_keys)
            with_keys = true;  // the cipher's counter holds the SSRC
    }
    if (with_destination) {
        sim::endpoint rtp, rtcp;
        if (l.to_leg) {
            rtp = (l.six ? sim::device_v6 : sim::device_v4).with_port(legs[l.partner].rtp_port);
            rtcp = rtp.with_port(rtp.port + 1);
        } else {
            rtp = fars[index].planned().rtp;
            rtcp = fars[index].planned().rtcp;
        }
        fields += cmd_get_tlv_address(5, to_ip_port(rtp)) + cmd_get_tlv_address(26, to_ip_port(rtcp)) +
                  cmd_get_tlv_short(34, l.tcp);
    }
    if (with_keys && l.keyed)
        fields += cmd_get_tlv_str(23, to_str(l.in.key)) + cmd_get_tlv_str(24, to_str(l.out.key)) +
                  cmd_get_tlv_str(25, str(static_cast<unsigned char>(l.out.tag_bytes), 1));
    static char const* const modes[] = {"pkt-loss-rle pkt-dup-rle=300 rcvr-rtt stat-summary voip-metrics",
                                        "pkt-rcpt-times=400 voip-metrics", "rcvr-rtt"};
    if (dice.chance(500))
        fields += cmd_get_tlv_str(21, str(modes[dice.below(3)]));
    l.sends.protect(l.keyed ? l.out.tag_bytes : 0);
    call_command(17, index, fields);
    run(sim::us);
    unsteady(index);
}

void driver::begin_far(int index, std::uint32_t process_sequence) {
    leg& l = legs[index];
    static int serial = 0;
    int const port = 30000 + 2 * (serial++ % 4000);
    sim::endpoint const near = (l.six ? sim::device_v6 : sim::device_v4).with_port(l.rtp_port);
    sim::far_end::plan p;
    p.rtp = l.six ? sim::v6(static_cast<unsigned char>(10 + index), port)
                  : sim::v4(203, 0, 113, static_cast<unsigned char>(10 + index), port);
    p.rtcp = p.rtp.with_port(port + 1);
    p.device_rtp = near;
    p.device_rtcp = near.with_port(near.port + 1);
    p.talk = &sim::formats[dice.below(7)];
    p.ptime_ms = p.talk->codec == codec::gsm_full_rate ? 20 : 10 * dice.between(1, 4);
    p.ppm = dice.between(-150, 150);
    p.streams = l.tcp;
    p.in = l.out;
    p.out = l.in;
    p.ssrc = dice.word() | 1;
    p.sequence = static_cast<std::uint32_t>(dice.between(l.keyed ? 1 : 0, l.keyed ? 0x7FFF : 0xFFFF));
    p.timestamp = dice.word();
    p.process_sequence = process_sequence;
    p.round_trip_known = l.clean && !l.tcp;
    fars[index].begin(*w, index, p, *this);
}

void driver::open_far_call(int line) {
    int const index = open_leg(line);
    if (index < 0)
        return;
    leg& l = legs[index];
    l.six = dice.chance(300);
    l.tcp = dice.chance(150);
    l.clean = dice.chance(700);
    l.keyed = dice.chance(350);
    l.codec = dice.below(7);
    l.route = l.clean ? sim::path{dice.between(200, 10000), dice.between(0, 3000)}
                      : sim::path{dice.between(200, 150000), dice.between(0, 80000), dice.between(0, 200),
                                  dice.between(0, 60)};
    if (l.keyed) {
        l.in = random_keys(dice);
        l.out = random_keys(dice);
        l.in.tag_bytes = l.out.tag_bytes;
    }
    begin_far(index, 0);
    configure(index, true, true, true);
    call_command(18, index, cmd_get_tlv_short(18, line));
    run(ms);
    unsteady(index, 2 * second);
    for (int i = 0; i < sim::far_count; i++)
        if (legs[i].open && legs[i].line == line)
            unsteady(i, 2 * second);
}

void driver::open_local_call() {
    int const from = dice.below(sim::line_count), to = (from + 1 + dice.below(3)) % sim::line_count;
    if (legs_on(from) > 0 || legs_on(to) > 0)
        return;
    int const a = open_leg(from);
    int const b = a < 0 ? -1 : open_leg(to);
    if (b < 0) {
        if (a >= 0)
            legs[a].to_leg = false, close_leg(a);
        return;
    }
    bool const six = dice.chance(300), keyed = dice.chance(350), clean = dice.chance(700);
    sim::protection const one = random_keys(dice), other = random_keys(dice);
    for (int const i : {a, b}) {
        leg& l = legs[i];
        l.to_leg = true;
        l.partner = i == a ? b : a;
        l.six = six;
        l.keyed = keyed;
        l.clean = clean;
        l.codec = dice.below(7);
        l.route = clean ? sim::path{500, 2000} : sim::path{20000, 60000, 50, 20};
        if (keyed) {
            l.in = i == a ? one : other;
            l.out = i == a ? other : one;
            l.in.tag_bytes = l.out.tag_bytes = one.tag_bytes;
        }
    }
    for (int const i : {a, b}) {
        configure(i, true, true, true);
        call_command(18, i, cmd_get_tlv_short(18, legs[i].line));
        run(ms);
        unsteady(i, 2 * second);
    }
}

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
    } else if (sim::format const& f = sim::formats[dice.below(7)];
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
    l.in = random_keys(dice);
    l.out = random_keys(dice);
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
        int const line = dice.below(sim::line_count);
        if (legs_on(line) > (l.to_leg ? 0 : 1))
            return;
        call_command(18, index, cmd_get_tlv_short(18, line));
        l.line = line;
    }
    for (int i = 0; i < sim::far_count; i++)
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
    for (int i = 0; i < sim::far_count; i++)
        unsteady(i, digits * 500 * ms + 2 * second);
    bool const seen = !l.to_leg && l.clean && !l.tcp && !l.doubtful && l.sends.events();
    run(digits * 500 * ms + 800 * ms);
    if (seen && fars[index].digits - before != digits)
        sim::violated("digits that did not arrive", fars[index].digits - before - digits);
}

/// What strangers and call control send into the middle of a call.
void driver::disturb(int index) {
    leg& l = legs[index];
    sim::endpoint const near =
        (l.six ? sim::device_v6 : sim::device_v4).with_port(l.rtp_port + dice.below(2));
    sim::endpoint const stranger = l.six ? sim::v6(99, 4000) : sim::v4(198, 51, 100, 1, 4000);
    switch (dice.below(6)) {
        case 0:
            w->deliver(stranger, near, std::string_view("\x00\x01\x00\x00\x21\x12\xA4\x42xxxxxxxxxxxx", 20));
            break;
        case 1: w->deliver(stranger, near, "\x10\x00zzZRTPxxxxxxxx"); break;
        case 2:
        case 3: {
            sim::bytes junk;
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
        sim::call which;
        int error;
    } faults[] = {{sim::call::socket, EMFILE}, {sim::call::bind, EADDRINUSE}, {sim::call::open, ENODEV},
                  {sim::call::send, ENOBUFS},  {sim::call::ioctl, EIO},       {sim::call::write, EAGAIN},
                  {sim::call::read, EIO},      {sim::call::receive, EAGAIN}};
    auto const& f = faults[dice.below(8)];
    bool const opens =
        f.which == sim::call::socket || f.which == sim::call::bind || f.which == sim::call::open;
    failures_until = w->now() + 10 * second;
    for (leg& l : legs)  // it ends a connection
        l.doubtful |= l.tcp && (f.which == sim::call::send || f.which == sim::call::receive);
    w->fail(f.which, f.error, opens ? dice.between(1, 40) : dice.between(1, 5));
    if (opens)
        open_far_call(dice.below(sim::line_count));
    run(200 * ms);
    w->fail(f.which, 0, 0);
    run(1200 * ms);
    for (int i = 0; i < sim::far_count; i++) {
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
    for (int i = 0; i < sim::far_count; i++)
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
    int const line = dice.below(sim::line_count);
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
    int const line = dice.below(sim::line_count);
    if (legs_on(line) < 2 && dice.chance(700))
        open_far_call(line);
    else
        open_local_call();
}

void driver::act() {
    static constexpr struct {
        int weight;
        void (driver::*act)(int leg);
    } actions[] = {{12, &driver::open_a_call},
                   {10, &driver::change_codec},
                   {6, &driver::rekey},
                   {6, &driver::move_far},
                   {8, &driver::hold},
                   {10, &driver::dial},
                   {12, &driver::disturb},
                   {3, &driver::fail_something},
                   {3, &driver::step_the_clock},
                   {3, &driver::set_log_level},
                   {3, &driver::use_other_devices},
                   {3, &driver::hang_up_a_line},
                   {4, &driver::close_leg},
                   {5, &driver::far_end_dials},
                   {4, &driver::break_stream}};
    int const index = some_leg();
    if (index < 0)
        return open_a_call(index);
    int left = 0;
    for (auto const& a : actions)
        left += a.weight;
    left = dice.below(left);
    for (auto const& a : actions)
        if ((left -= a.weight) < 0)
            return (this->*a.act)(index);
}

/// Some minutes of calls, then quiet for minutes, hours or days.
void driver::episode() {
    for (int actions = dice.between(4, 30); actions > 0; actions--) {
        act();
        run(dice.chance(10) ? dice.between(60, 1500) * second : dice.between(300, 9000) * ms);
        check_audio();
    }
    for (int i = 0; i < sim::far_count; i++)
        close_leg(i);
    command(22, cmd_get_tlv_short(27, 0));
    run(3 * second);
    check_idle();
    int const quiet = dice.below(100);
    run(quiet < 50   ? dice.between(1, 60) * minute
        : quiet < 92 ? dice.between(1, 10) * hour
                     : dice.between(1, 6) * day);
    check_idle();
}

driver::driver(std::uint64_t seed, bool verbose_) : exchange(verbose_), dice(seed * 7919 + 3) {
    // Around the present, the ends of signed 32-bit seconds and of NTP's first era, and beyond both.
    static constexpr std::int64_t days_s[] = {1700000000, 2147483648 - 7200, 2085978496 - 7200, 4000000000};
    chosen.seed = seed;
    if (seed % 3 == 0)  // the 32-bit clock wraps within ten minutes
        chosen.clock_start = 0xFFFFFFFF - static_cast<std::uint32_t>(dice.below(60000));
    chosen.time_of_day_s = days_s[sizeof(std::time_t) > 4 ? dice.below(4) : 0];
    chosen.line_ppm = dice.between(-100, 100);
}

void driver::live(double days) {
    sim::world world(*this, chosen);
    w = run_of.world = &world;
    run(300 * sim::us);
    used_at_start = sim::world::pool_in_use();
    set_ntp_offset();
    while (w->now() < static_cast<std::int64_t>(days * day))
        episode();
    std::printf("seed %llu: %.2f days, ", run_of.seed, static_cast<double>(w->now()) / day);
    print_figures();
    run_of.world = nullptr;
}

}  // namespace

void sim::violated(std::string_view what, long long value) {
    std::printf("%.*s (%lld)", static_cast<int>(what.size()), what.data(), value);
    if (run_of.world)
        std::printf(" after %.6f s", static_cast<double>(run_of.world->now()) / second);
    std::printf("\nrepeat with: fxs_years --seed %llu --days %g\n", run_of.seed, run_of.days);
    std::fflush(stdout);
    std::_Exit(1);
}

int main(int argc, char** argv) {
    bool verbose = false;
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--verbose") == 0)
            verbose = true;
        else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc)
            run_of.seed = std::strtoull(argv[++i], nullptr, 10);
        else if (std::strcmp(argv[i], "--days") == 0 && i + 1 < argc)
            run_of.days = std::strtod(argv[++i], nullptr);
        else
            return std::printf("fxs_years [--seed N] [--days D] [--verbose]\n"), 2;
    }
    static driver all(run_of.seed, verbose);
    all.live(run_of.days);
}
