#include <algorithm>
#include <cerrno>

#include "lib/protocol.h"
#include "lib/tlv.h"
#include "tests/sim/driver.h"

namespace sim {

using namespace protocol;

int driver::open_leg(int line) {
    int index = 0;
    while (index < far_count && legs[index].open)
        index++;
    if (index == far_count)
        return -1;
    rtp_ports[index] = 0;
    call_command(cmd_open::tag, index,
                 cmd_get_tlv_str(cmd_open::call_id, str("call")) + cmd_get_tlv_short(cmd_open::port_min, 20000) +
                     cmd_get_tlv_short(cmd_open::port_max, 60000));
    run(5 * ms);
    if (rtp_ports[index] == 0) {
        if (w->now() > failures_until)
            unlawful("a call that could not be opened");
        return -1;
    }
    leg& l = legs[index] = leg();
    l.open = true;
    l.rtp_port = rtp_ports[index];
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
    call_command(cmd_end::tag, index, str::null);
    run(ms);
    l.open = false;
    if (!l.to_leg)
        fars[index].end();
    else
        close_leg(l.partner);
    all_unsteady();
}

/// One media command with these groups.
void driver::configure(int index, bool with_codec, bool with_destination, bool with_keys) {
    leg& l = legs[index];
    str fields;
    l.changing = true;
    if (with_codec) {
        format const& f = formats[l.codec];
        static constexpr int packet_times[] = {10, 20, 30, 40, 60};
        int const ptime = f.codec == codec_number::gsm ? 20 * dice.between(1, 3) : packet_times[dice.below(5)];
        bool const events = dice.chance(700);
        std::uint32_t const ssrc = dice.word() | 1;
        fields += codec_fields(f, formats, 7, ptime, ssrc, events);
        l.sends.expect(f, ptime, events, ssrc);
        with_keys = true;  // the cipher's counter holds the SSRC
    }
    if (with_destination)
        fields += destination_fields(l.to_leg ? legs[l.partner].near() : fars[index].planned().rtp, l.tcp);
    if (with_keys && l.keyed)
        fields += key_fields(l.in, l.out);
    if (dice.chance(500))
        fields += cmd_get_tlv_str(cmd_media::xr_mode, any_xr_mode());
    l.sends.protect(l.keyed ? l.out.tag_bytes : 0);
    call_command(cmd_media::tag, index, fields);
    run(us);
    l.changing = false;
    unsteady(index);
}

void driver::begin_far(int index, std::uint32_t process_sequence) {
    leg& l = legs[index];
    int const port = 5000 + 2 * (serial++ % 4000), host = 10 + index;
    far_end::plan p;
    p.rtp =
        l.six ? v6(static_cast<unsigned char>(host), port) : v4(203, 0, 113, static_cast<unsigned char>(host), port);
    p.device_rtp = l.near();
    p.talk = &formats[dice.below(7)];
    p.ptime_ms = p.talk->codec == codec_number::gsm ? 20 : 10 * dice.between(1, 4);
    p.ppm = dice.between(-150, 150);
    p.streams = l.tcp;
    p.in = l.out;
    p.out = l.in;
    p.ssrc = dice.word() | 1;
    p.sequence = static_cast<std::uint32_t>(dice.between(l.keyed, 0xFFFF));
    p.timestamp = dice.word();
    p.process_sequence = process_sequence;
    p.round_trip_known = l.clean && !l.tcp;
    fars[index].begin(*w, index, p, *this);
}

void driver::put_on_line(int index, int line) {
    legs[index].line = line;
    call_command(cmd_tdm_channel::tag, index, cmd_tdm_channel::slot, line == no_line ? no_slot : line);
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
    l.route = l.clean
                  ? path{dice.between(200, 10000), dice.between(0, 3000)}
                  : path{dice.between(200, 150000), dice.between(0, 80000), dice.between(0, 200), dice.between(0, 60)};
    if (l.keyed) {
        l.in = random_keys();
        l.out = random_keys(l.in.tag_bytes);
    }
    begin_far(index, 0);
    configure(index, true, true, true);
    put_on_line(index, line);
    run(ms);
    for (int i = 0; i < far_count; i++)
        if (legs[i].line == line)
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
            close_leg(a);
        return;
    }
    bool const six = dice.chance(300), keyed = dice.chance(350), clean = dice.chance(700);
    protection const one = random_keys(), other = random_keys(one.tag_bytes);
    for (int const i : {a, b}) {
        leg& l = legs[i];
        l.to_leg = true;
        l.partner = i == a ? b : a;
        l.six = six;
        l.keyed = keyed;
        l.clean = clean;
        l.codec = dice.below(7);
        l.route = clean ? path{500, 2000} : path{20000, 60000, 50, 20};
        l.in = i == a ? one : other;
        l.out = i == a ? other : one;
    }
    for (int const i : {a, b}) {
        configure(i, true, true, true);
        put_on_line(i, legs[i].line);
        run(ms);
        unsteady(i, 2 * second);
    }
}

protection driver::random_keys(int tag_bytes) {
    protection p;
    for (random_source key(dice.word()); p.key.size() < 30;)
        p.key += static_cast<char>(key.word());
    p.tag_bytes = tag_bytes > 0 ? tag_bytes : dice.chance(500) ? 10 : 4;
    return p;
}

}  // namespace sim
