#pragma once

#include "tests/sim/ears.h"
#include "tests/sim/far_end.h"
#include "tests/sim/sent_stream.h"

namespace sim {

constexpr int no_line = -1, no_partner = -1;

/// One channel and who is at its other end: a far end of the same number, or another leg on another line.
struct leg {
    bool open = false, to_leg = false, six = false, tcp = false, clean = true, keyed = false,
         doubtful = false, closing = false;
    int rtp_port = 0, line = no_line, partner = no_partner;
    int codec = 0;
    path route;
    protection in, out;  ///< of the process
    sent_stream sends;
    std::int64_t opened = 0, steady_from = 0, last_report = -1;
};

/// The surroundings of a long life: legs, far ends, mouths and ears, and all that must hold of what the process does.
/// What happens to it is the derived class's choice. Violations end the program.
class exchange : public surroundings, protected far_end::ear_and_mouth {
public:
    explicit exchange(bool verbose_) : verbose(verbose_) {}

protected:
    void report(std::string_view data) override;
    void line(int l, std::int16_t const* heard, std::int16_t* said) override {
        line_ear[l].hear(heard, w->now());
        line_mouth[l].say(l, said);
    }
    void sent(endpoint const& from, endpoint const& to, std::string_view data) override;
    path route(endpoint const& from, endpoint const& to) override {
        int const index = leg_of_port(from.port) >= 0 ? leg_of_port(from.port) : leg_of_port(to.port);
        return index < 0 ? path{} : legs[index].route;
    }
    void arrived(endpoint const&, endpoint const& to, std::string_view data) override {
        for (far_end& f : fars)
            if (f.owns(to))
                f.arrived(to, data);
    }
    bool connecting(int stream, endpoint const& to) override {
        for (far_end& f : fars)
            if (f.owns(to))
                return f.connected(stream, to), true;
        return false;
    }
    void stream_data(int stream, std::string_view data) override {
        for (far_end& f : fars)
            if (f.owns_stream(stream))
                f.stream_data(stream, data);
    }
    void stream_closed(int stream) override {
        for (int i = 0; i < far_count; i++)
            if (fars[i].owns_stream(stream) && !legs[i].doubtful && !legs[i].closing)
                violated("a stream closed in the middle of a call", i);
    }
    void wake(int token) override { fars[far_end::index_of(token)].wake(token); }
    void say(int far, std::int16_t* pcm) override { far_mouth[far].say(line_count + far, pcm); }
    void hear(int far, std::int16_t const* pcm) override { far_ear[far].hear(pcm, w->now()); }

    /// Time passes; what must go on goes on.
    void run(std::int64_t ns);
    /// Every ear that can be sure hears who it should, and nobody else.
    void check_audio();
    /// Nothing is left of ended calls.
    void check_idle();
    /// What this leg's channel hears and sends is not looked at for this time.
    void unsteady(int index, std::int64_t time = 1200 * ms) {
        legs[index].steady_from = std::max(legs[index].steady_from, w->now() + time);
    }
    void command(int tag, str const& fields);
    void call_command(int tag, int index, str const& fields);
    void print_figures() const;

    int leg_of_port(int port) const {
        for (int i = 0; i < far_count; i++)
            if (legs[i].open && (port & ~1) == legs[i].rtp_port)
                return i;
        return -1;
    }

    bool verbose;  ///< prints every command and log line
    world* w = nullptr;
    leg legs[far_count];
    far_end fars[far_count];
    int opened_port = 0;  ///< of the last channel that was opened
    std::int64_t failures_until = -1, lines_dead_until = -1;
    std::int64_t last_beat = -1;
    bool ntp_known = false;  ///< call control has told the time of day
    std::uint64_t used_at_start = 0;
    std::uint64_t calls = 0;
    std::int64_t talk_ns = 0;

private:
    using tones = unsigned;  ///< one bit for each
    tones coming_from(int index) const;
    tones going_to(int index) const;
    bool speech_coder_on(int line, bool and_beyond = true) const;
    bool steady(int line, bool and_beyond = true) const;
    bool ear_is_right(ear const& e, tones expected, bool speech_coder);
    bool audio_is_right();
    void print_levels() const;

    mouth line_mouth[line_count], far_mouth[far_count];
    ear line_ear[line_count], far_ear[far_count];
    int callbacks_when_idle = -1;
    std::uint64_t audio_checks = 0, beats = 0, log_lines[10] = {}, packets = 0, ears = 0, most_kept = 0;
};

inline str to_str(std::string_view data) {
    return str(reinterpret_cast<unsigned char const*>(data.data()), static_cast<int>(data.size()));
}

}  // namespace sim
