#pragma once

#include "tests/sim/ears.h"
#include "tests/sim/sent_stream.h"
#include "tests/sim/telephone_network.h"

namespace sim {

constexpr int no_line = -1;

/// One channel and who is at its other end: the far end of the same number, or another leg on another line.
struct leg {
    bool open = false, to_leg = false, six = false, tcp = false, clean = true, keyed = false, doubtful = false,
         closing = false, changing = false;
    int rtp_port = 0, line = no_line, partner = -1;
    int codec = 0;
    path route;
    protection in, out;  ///< of the process
    sent_stream sends;
    std::int64_t opened = 0, steady_from = 0, last_report = -1;

    endpoint near() const { return (six ? device_v6 : device_v4).with_port(rtp_port); }
};

/// Calls and all that must hold of what the process does with them: what each line and each far end hears, every
/// packet's header, reports and heartbeats in time. What happens to the calls is the derived class's choice.
class exchange : public telephone_network {
protected:
    void run(std::int64_t ns) override;
    void reported(int tag, str const& value) override;
    void sent(endpoint const& from, endpoint const& to, std::string_view data) override;
    void line(int l, std::int16_t const* heard, std::int16_t* said) override {
        line_ear[l].hear(heard, w->now());
        line_mouth[l].say(l, said);
    }
    path route(endpoint const& from, endpoint const& to) override {
        int const index = std::max(leg_of_port(from.port), leg_of_port(to.port));
        return index < 0 ? path{} : legs[index].route;
    }
    void arrived(endpoint const& from, endpoint const& to, std::string_view data) override {
        if (!lawless)
            telephone_network::arrived(from, to, data);
    }
    void stream_data(int stream, std::string_view data) override {
        if (!lawless)
            telephone_network::stream_data(stream, data);
    }
    void stream_closed(int stream) override {
        for (int i = 0; i < far_count; i++)
            if (fars[i].owns_stream(stream) && !legs[i].doubtful && !legs[i].closing)
                unlawful("a stream closed in the middle of a call", i);
    }
    void say(int far, std::int16_t* pcm) override { far_mouth[far].say(line_count + far, pcm); }
    void hear(int far, std::int16_t const* pcm) override { far_ear[far].hear(pcm, w->now()); }
    using telephone_network::command;
    void command(int tag, str const& fields) override;

    /// Every ear that can be sure hears who it should, and nobody else.
    void check_audio();
    /// Nothing is left of ended calls.
    void check_idle();
    /// What this leg's channel hears and sends is not looked at for this time.
    void unsteady(int index, std::int64_t time = 1200 * ms) {
        legs[index].steady_from = std::max(legs[index].steady_from, w->now() + time);
    }
    void all_unsteady(std::int64_t time = 1200 * ms) {
        for (int i = 0; i < far_count; i++)
            unsteady(i, time);
    }
    /// A fault, if all that happened so far was what call control and far ends may do.
    void unlawful(std::string_view what, long long value = 0) const {
        if (!lawless)
            violated(what, value);
    }
    void print_figures() const;

    int leg_of_port(int port) const {
        for (int i = 0; i < far_count; i++)
            if (legs[i].open && (port & ~1) == legs[i].rtp_port)
                return i;
        return -1;
    }

    bool verbose = false;  ///< prints every command and log line
    bool lawless = false;  ///< things have been done to the process after which calls need not go well
    leg legs[far_count];
    std::int64_t failures_until = -1, lines_dead_until = -1;
    std::int64_t last_beat = -1;
    bool ntp_known = false;  ///< call control has told the time of day
    std::uint64_t used_at_start = 0;
    unsigned long long calls = 0;
    std::int64_t talk_ns = 0;

private:
    using tones = unsigned;  ///< one bit for each
    tones coming_from(int index) const;
    tones going_to(int index) const;
    template <typename condition>
    bool any_leg_heard_at(int line, condition const& holds) const;
    bool speech_coder_on(int line) const;
    bool steady(int line) const;
    bool ear_is_right(ear const& e, tones expected, bool speech_coder);
    bool audio_is_right();

    mouth line_mouth[line_count], far_mouth[far_count];
    ear line_ear[line_count], far_ear[far_count];
    int callbacks_when_idle = -1;
    unsigned long long packets = 0, ears = 0;
};

}  // namespace sim
