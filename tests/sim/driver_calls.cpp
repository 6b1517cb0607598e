#include "tests/sim/driver.h"

#include <algorithm>
#include <cerrno>

#include "lib/tlv.h"

namespace sim {

namespace {

ip_port to_ip_port(endpoint const& e) {
    return ip_port(to_str(e.address_bytes()), e.port);
}

}  // namespace

int driver::open_leg(int line) {
    int index = 0;
    while (index < far_count && legs[index].open)
        index++;
    if (index == far_count)
        return -1;
    opened_port = 0;
    call_command(
        16, index,
        cmd_get_tlv_str(22, str("call")) + cmd_get_tlv_short(11, 20000) + cmd_get_tlv_short(12, 60000));
    run(5 * ms);
    if (opened_port == 0) {
        if (w->now() > failures_until)
            violated("a call that could not be opened");
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
    for (int i = 0; i < far_count; i++)
        if (legs[i].open)
            unsteady(i);
}

/// One media command with these groups.
void driver::configure(int index, bool with_codec, bool with_destination, bool with_keys) {
    leg& l = legs[index];
    str fields;
    run(us);  // nothing is left that would be sent with the old settings
    if (with_codec) {
        format const& f = formats[l.codec];
        bool const pair_needed = f.codec == codec::gsm_full_rate;
        static constexpr int packet_times[] = {10, 20, 30, 40, 60};
        int const ptime = pair_needed ? 20 * dice.between(1, 3) : packet_times[dice.below(5)];
        bool const events = dice.chance(700);
        std::uint32_t const ssrc = dice.word() | 1;
        fields += cmd_get_tlv_str(
            6, str(static_cast<unsigned char>(f.payload_type), static_cast<unsigned char>(f.codec)));
        for (format const& each : formats)
            fields += cmd_get_tlv_str(16, str(static_cast<unsigned char>(each.codec),
                                              static_cast<unsigned char>(each.payload_type)));
        if (events)
            fields += cmd_get_tlv_str(19, str(static_cast<unsigned char>(event_type), 1));
        fields += cmd_get_tlv_short(17, ptime) + cmd_get_tlv_long(33, static_cast<int>(ssrc));
        l.sends.expect(f, ptime, events, ssrc);
        if (l.keyed && !with_keys)
            with_keys = true;  // the cipher's counter holds the SSRC
    }
    if (with_destination) {
        endpoint rtp, rtcp;
        if (l.to_leg) {
            rtp = (l.six ? device_v6 : device_v4).with_port(legs[l.partner].rtp_port);
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
    run(us);
    unsteady(index);
}

void driver::begin_far(int index, std::uint32_t process_sequence) {
    leg& l = legs[index];
    static int serial = 0;
    int const port = 30000 + 2 * (serial++ % 4000);
    endpoint const near = (l.six ? device_v6 : device_v4).with_port(l.rtp_port);
    far_end::plan p;
    p.rtp = l.six ? v6(static_cast<unsigned char>(10 + index), port)
                  : v4(203, 0, 113, static_cast<unsigned char>(10 + index), port);
    p.rtcp = p.rtp.with_port(port + 1);
    p.device_rtp = near;
    p.device_rtcp = near.with_port(near.port + 1);
    p.talk = &formats[dice.below(7)];
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
    l.route = l.clean ? path{dice.between(200, 10000), dice.between(0, 3000)}
                      : path{dice.between(200, 150000), dice.between(0, 80000), dice.between(0, 200),
                             dice.between(0, 60)};
    if (l.keyed) {
        l.in = random_keys();
        l.out = random_keys();
        l.in.tag_bytes = l.out.tag_bytes;
    }
    begin_far(index, 0);
    configure(index, true, true, true);
    call_command(18, index, cmd_get_tlv_short(18, line));
    run(ms);
    unsteady(index, 2 * second);
    for (int i = 0; i < far_count; i++)
        if (legs[i].open && legs[i].line == line)
            unsteady(i, 2 * second);
}

void driver::open_local_call() {
    int const from = dice.below(line_count), to = (from + 1 + dice.below(3)) % line_count;
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
    protection const one = random_keys(), other = random_keys();
    for (int const i : {a, b}) {
        leg& l = legs[i];
        l.to_leg = true;
        l.partner = i == a ? b : a;
        l.six = six;
        l.keyed = keyed;
        l.clean = clean;
        l.codec = dice.below(7);
        l.route = clean ? path{500, 2000} : path{20000, 60000, 50, 20};
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

protection driver::random_keys() {
    protection p;
    for (int i = 0; i < 30; i++)
        p.key += static_cast<char>(dice.word());
    p.tag_bytes = dice.chance(500) ? 10 : 4;
    return p;
}

}  // namespace sim
