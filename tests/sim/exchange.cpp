#include "tests/sim/exchange.h"

#include <cstdio>
#include <cstdlib>

#include "lib/timeout.h"
#include "lib/tlv.h"

namespace sim {

namespace {

constexpr std::uint32_t ntp_1900 = 2208988800u;
constexpr std::uint64_t kept_when_idle =
    8192;  // SSRCs in ended SRTP contexts, PCM that waits for its GSM frame

std::uint32_t be(std::string_view data, std::size_t at, int n) {
    std::uint32_t value = 0;
    for (int i = 0; i < n; i++)
        value = value << 8 | static_cast<unsigned char>(data.at(at + static_cast<std::size_t>(i)));
    return value;
}

}  // namespace

// ---- reports

void exchange::report(std::string_view data) {
    std::uint32_t const tag = be(data, 0, 2);
    if (be(data, 2, 2) + 4 != data.size())
        violated("a report of another length", tag);
    if (tag == 19) {
        std::int64_t const now = w ? w->now() : 0;
        if (last_beat >= 0 && now > failures_until && std::abs(now - last_beat - second) > 20 * ms)
            violated("heartbeats so many ns apart", now - last_beat);
        last_beat = now;
        beats++;
    } else if (tag == 6) {
        opened_port = static_cast<int>(be(data, 14, 2));
    } else if (tag == 2) {
        std::uint32_t const level = be(data, 8, 2);
        log_lines[std::min(level, 9u)]++;
        if (verbose)
            std::printf("%.6f log %u %.*s\n", static_cast<double>(w ? w->now() : 0) / second, level,
                        static_cast<int>(data.size() - 14), data.data() + 14);
        if (level <= 1 && w && w->now() > failures_until && data.find("bind() to port") == data.npos)
            violated(std::string_view(bytes("an unexpected log line: ") + bytes(data.substr(14))));
    }
}

void exchange::sent(endpoint const& from, endpoint const& to, std::string_view data) {
    int const index = leg_of_port(from.port);
    if (index < 0)
        violated("a packet from an unknown port", from.port);
    leg& l = legs[index];
    if (from.port == l.rtp_port) {
        packets++;
        if (w->now() <= failures_until)
            l.sends.forget();
        l.sends.packet(data);
        if (!l.to_leg && !fars[index].owns(to))
            violated("a packet to nobody", to.port);
        return;
    }
    if (l.last_report >= 0 && w->now() > failures_until &&
        std::abs(w->now() - l.last_report - 2 * second) > 30 * ms)
        violated("reports so many ns apart", w->now() - l.last_report);
    l.last_report = w->now();
    if (l.out.key.empty() && ntp_known &&
        be(data, 8, 4) - static_cast<std::uint32_t>(w->time_of_day() / second) - ntp_1900 + 1 > 2)
        violated("a report of another time", be(data, 8, 4));
    if (l.out.key.empty() && w->now() > failures_until && !l.sends.count_is(be(data, 20, 4)))
        violated("a report of another packet count", be(data, 20, 4));
}

void exchange::command(int tag, str const& fields) {
    if (verbose) {
        std::printf("%.6f command %d", static_cast<double>(w->now()) / second, tag);
        for (int i = 0; i < fields.length(); i++)
            std::printf(" %02X", fields[i]);
        std::printf("\n");
    }
    w->command(cmd_get_tlv_str(tag, fields));
}

void exchange::call_command(int tag, int index, str const& fields) {
    command(tag, cmd_get_tlv_short(4, index) + fields);
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

/// Whether something that is heard at this line, or at the line at the other end, went through a speech coder.
bool exchange::speech_coder_on(int line, bool and_beyond) const {
    auto const is = [](int codec) { return codec == codec::g729 || codec == codec::gsm_full_rate; };
    for (int i = 0; i < far_count; i++)
        if (leg const& l = legs[i]; l.open && l.line == line)
            if (is(l.codec) || (l.to_leg ? and_beyond && speech_coder_on(legs[l.partner].line, false)
                                         : is(fars[i].planned().talk->codec)))
                return true;
    return false;
}

/// Whether all that is heard at this line, and at the line at the other end, can be relied on.
bool exchange::steady(int line, bool and_beyond) const {
    if (line == no_line || w->now() < lines_dead_until)
        return false;
    for (leg const& l : legs)
        if (l.open && l.line == line)
            if (w->now() < l.steady_from || !l.clean || l.doubtful ||
                (l.to_leg && and_beyond && !steady(legs[l.partner].line, false)))
                return false;
    return true;
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
    double const least = several        ? 0.5
                         : speech_coder ? 0.4
                                        : 0.8,
                 most = speech_coder ? 1.8
                        : several    ? 1.5
                                     : 1.2;
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
    audio_checks++;
    for (int attempt = 0; !audio_is_right(); attempt++) {
        if (attempt == 3)
            print_levels(), violated("audio that is not what was said");
        w->run(700 * ms);
    }
}

void exchange::print_levels() const {
    for (int i = 0; i < far_count; i++)
        if (leg const& l = legs[i]; l.open)
            std::printf(
                "leg %d: line %d, partner %d, sends codec %d, gets %d, tcp %d, clean %d, keyed %d, steady "
                "%d\n",
                i, l.line, l.partner, l.codec, l.to_leg ? -1 : fars[i].planned().talk->codec, l.tcp, l.clean,
                l.keyed, steady(l.line));
    for (int who = 0; who < tone_count; who++) {
        std::printf("tone %2d at lines", who);
        for (ear const& e : line_ear)
            std::printf(" %5.0f", e.amplitude(who));
        std::printf(", at far ends");
        for (ear const& e : far_ear)
            std::printf(" %5.0f", e.amplitude(who));
        std::printf("\n");
    }
}

// ---- time

void exchange::run(std::int64_t ns) {
    w->run(ns);
    if (char const* const what = w->trouble())
        violated(what);
    bool const failing = w->now() <= failures_until;
    if (!failing && w->now() - last_beat > 1100 * ms)
        violated("no heartbeat for ns", w->now() - last_beat);
    for (leg& l : legs)
        if (l.open && !failing && !l.tcp && !l.doubtful &&
            w->now() - std::max(l.opened, l.last_report) > 2200 * ms)
            violated("no report for ns", w->now() - l.last_report);
    if (world::pool_in_use() > 16 << 20)
        violated("so many bytes in use", static_cast<long long>(world::pool_in_use()));
}

void exchange::check_idle() {
    if (!w->idle())
        violated("something is left of ended calls; timeouts", timeout_queue::global_queue.size());
    std::uint64_t const used = world::pool_in_use();
    if (used > used_at_start + kept_when_idle)
        violated("bytes more in use when idle than at the start",
                 static_cast<long long>(used - used_at_start));
    most_kept = std::max(most_kept, used - std::min(used, used_at_start));
    if (callbacks_when_idle < 0)
        callbacks_when_idle = callback_objects;
    if (callback_objects != callbacks_when_idle)
        violated("callback objects when idle", callback_objects);
}

void exchange::print_figures() const {
    std::uint64_t heard = 0, trips = 0;
    for (far_end const& f : fars)
        heard += f.received, trips += f.round_trips;
    auto const n = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf(
        "%llu calls, %.2f hours of talk, %llu packets sent, %llu at far ends, %llu heartbeats, %llu audio "
        "checks of "
        "%llu ears, %llu round trips, pool %llu bytes, %llu kept when idle, log lines",
        n(calls), static_cast<double>(talk_ns) / 3600 / second, n(packets), n(heard), n(beats),
        n(audio_checks), n(ears), n(trips), n(str::allocated_size), n(most_kept));
    for (std::uint64_t const count : log_lines)
        std::printf(" %llu", n(count));
    std::printf("\n");
}

}  // namespace sim
