#include "tests/sim/exchange.h"

#include <cstdio>
#include <cstdlib>

#include "lib/protocol.h"
#include "lib/rtcp_numbers.h"
#include "lib/timeout.h"
#include "lib/tlv.h"
#include "lib/wire.h"

namespace sim {

using namespace protocol;

namespace {

constexpr std::uint32_t ntp_1900 = 2208988800u;
// SSRCs in ended SRTP contexts, PCM that waits for its GSM frame.
constexpr std::uint64_t kept_when_idle = 8192;

bool apart(std::int64_t one, std::int64_t other, std::int64_t tolerance) {
    return std::abs(one - other) > tolerance;
}

}  // namespace

// ---- reports

void exchange::reported(int tag, str const& value) {
    std::int64_t const now = w ? w->now() : 0;
    if (tag == report_heartbeat::tag) {
        if (last_beat >= 0 && now > failures_until && apart(now - last_beat, second, 20 * ms))
            unlawful("heartbeats so many ns apart", now - last_beat);
        last_beat = now;
    } else if (tag == report_log::tag) {
        constexpr int text_at = 10;
        unsigned const level = wire::get16(value.cbuffer() + tlv_header_bytes);
        std::string_view const text = view(value).substr(text_at);
        if (verbose)
            std::printf("%.6f log %u %.*s\n", static_cast<double>(now) / second, level, static_cast<int>(text.size()),
                        text.data());
        if (level <= 1 && w && now > failures_until && text.find("bind() to port") == text.npos)
            unlawful(text, level);
    }
}

void exchange::sent(endpoint const& from, endpoint const& to, std::string_view data) {
    if (lawless)
        return telephone_network::sent(from, to, data);
    int const index = leg_of_port(from.port);
    if (index < 0)
        violated("a packet from an unknown port", from.port);
    leg& l = legs[index];
    std::int64_t const now = w->now();
    if (from.port == l.rtp_port) {
        packets++;
        if (l.changing)  // with the old settings or with the new ones
            return l.sends.forget();
        if (now <= failures_until)
            l.sends.forget();
        l.sends.packet(data);
        if (!l.to_leg && !fars[index].owns(to))
            violated("a packet to nobody", to.port);
        return;
    }
    if (l.last_report >= 0 && now > failures_until && apart(now - l.last_report, 2 * second, 30 * ms))
        violated("reports so many ns apart", now - l.last_report);
    l.last_report = now;
    if (!l.out.key.empty() || static_cast<unsigned char>(data[1]) != rtcp::packet_type::sender_report)
        return;
    auto const word = [&](int at) { return wire::get32(to_str(data).cbuffer() + at); };
    if (ntp_known && word(8) - static_cast<std::uint32_t>(w->time_of_day() / second) - ntp_1900 + 1 > 2)
        violated("a report of another time", word(8));
    if (now > failures_until && !l.sends.count_is(word(20)))
        violated("a report of another packet count", word(20));
}

void exchange::command(int tag, str const& fields) {
    if (verbose) {
        std::printf("%.6f command %d", static_cast<double>(w->now()) / second, tag);
        for (int i = 0; i < fields.length(); i++)
            std::printf(" %02X", fields[i]);
        std::printf("\n");
    }
    telephone_network::command(tag, fields);
}

// ---- audio

/// The tones that reach this leg's channel from the network.
exchange::tones exchange::coming_from(int index) const {
    leg const& l = legs[index];
    return l.to_leg ? going_to(l.partner) : 1u << (line_count + index);
}

/// The tones that this leg's channel sends: its line's, and what the other party of a conference says.
exchange::tones exchange::going_to(int index) const {
    leg const& l = legs[index];
    if (l.line == no_line)
        return 0;
    tones all = 1u << l.line;
    for (int i = 0; i < far_count; i++)
        if (i != index && legs[i].open && legs[i].line == l.line)
            all |= coming_from(i);
    return all;
}

/// Of the legs on this line, those at their other ends and those in conference with them.
template <typename condition>
bool exchange::any_leg_heard_at(int line, condition const& holds) const {
    auto const any = [&](auto const& of) { return std::any_of(std::begin(legs), std::end(legs), of); };
    return any([&](leg const& l) {
        auto const leads_to_l = [&](leg const& near) {
            return near.open && near.line == line && near.to_leg &&
                   (&legs[near.partner] == &l || (l.line != no_line && legs[near.partner].line == l.line));
        };
        return l.open && (l.line == line || any(leads_to_l)) && holds(l);
    });
}

/// Whether something that is heard at this line went through a speech coder.
bool exchange::speech_coder_on(int line) const {
    auto const is = [](int codec) { return codec == codec::g729 || codec == codec::gsm_full_rate; };
    return any_leg_heard_at(
        line, [&](leg const& l) { return is(l.codec) || (!l.to_leg && is(fars[&l - legs].planned().talk->codec)); });
}

/// Whether all that is heard at this line can be relied on.
bool exchange::steady(int line) const {
    return line != no_line && w->now() >= lines_dead_until && !any_leg_heard_at(line, [&](leg const& l) {
               return w->now() < l.steady_from || !l.clean || l.doubtful || l.line == no_line;
           });
}

/// Each tone comes at about its level and nothing else nearly as loud. Of several in a speech coder the loudest is one
/// of them.
bool exchange::ear_is_right(ear const& e, tones expected, bool speech_coder) {
    ears++;
    if (w->now() - e.last > 200 * ms)
        return false;
    double level[tone_count];
    for (int who = 0; who < tone_count; who++)
        level[who] = e.amplitude(who);
    auto const loudest = std::max_element(level, level + tone_count) - level;
    bool const several = (expected & (expected - 1)) != 0;
    if (several && speech_coder)
        return (expected >> loudest & 1) != 0 && level[loudest] > peak / 4;
    double const least = several ? 0.5 : speech_coder ? 0.4 : 0.8;
    double const most = speech_coder ? 1.8 : several ? 1.5 : 1.2;
    for (int who = 0; who < tone_count; who++)
        if (bool const said = (expected >> who & 1) != 0; said != (level[who] > level[loudest] / 2) ||
                                                          (said && level[who] < peak * least) ||
                                                          (said && level[who] > peak * most))
            return false;
    return true;
}

bool exchange::audio_is_right() {
    tones at_line[line_count] = {};
    for (int i = 0; i < far_count; i++) {
        leg const& l = legs[i];
        if (!l.open || !steady(l.line))
            continue;
        at_line[l.line] |= coming_from(i);
        if (!l.to_leg && !ear_is_right(far_ear[i], going_to(i), speech_coder_on(l.line)))
            return false;
    }
    for (int l = 0; l < line_count; l++)
        if (at_line[l] != 0 && !ear_is_right(line_ear[l], at_line[l], speech_coder_on(l)))
            return false;
    return true;
}

/// A slip of the clocks may fall into what was heard last: four times in a row it doesn't.
void exchange::check_audio() {
    for (int attempt = 0; !lawless && !audio_is_right(); attempt++) {
        if (attempt == 3)
            violated("audio that is not what was said");
        w->run(700 * ms);
    }
}

// ---- time

void exchange::run(std::int64_t ns) {
    telephone_network::run(ns);
    if (w->now() <= failures_until)
        return;
    if (w->now() - last_beat > 1100 * ms)
        unlawful("no heartbeat for ns", w->now() - last_beat);
    for (leg const& l : legs)
        if (l.open && !l.tcp && !l.doubtful && w->now() - std::max(l.opened, l.last_report) > 2200 * ms)
            unlawful("no report for ns", w->now() - l.last_report);
}

void exchange::check_idle() {
    if (!w->idle())
        violated("something is left of ended calls; timeouts", timeout_queue::global_queue.size());
    if (world::pool_in_use() > used_at_start + kept_when_idle)
        violated("bytes more in use when idle than at the start",
                 static_cast<long long>(world::pool_in_use() - used_at_start));
    if (callbacks_when_idle < 0)
        callbacks_when_idle = callback_objects;
    if (callback_objects != callbacks_when_idle)
        violated("callback objects when idle", callback_objects);
}

void exchange::print_figures() const {
    unsigned long long heard = 0, trips = 0;
    for (far_end const& f : fars)
        heard += f.received, trips += f.round_trips;
    std::printf(
        "%.2f days, %llu calls, %.2f hours of talk, %llu packets sent, %llu at far ends, %llu ears asked, "
        "%llu round trips, pool %llu bytes\n",
        static_cast<double>(w->now()) / 86400 / second, calls, static_cast<double>(talk_ns) / 3600 / second, packets,
        heard, ears, trips, static_cast<unsigned long long>(str::allocated_size));
}

}  // namespace sim
