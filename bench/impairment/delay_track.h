#pragma once

#include <vector>

#include "bench/impairment/speech.h"

/// When what is heard was said, in windows of 40 ms, by correlation. Both sounds begin at the same time, each by its
/// own clock.
class delay_track {
public:
    static constexpr int window = 40 * samples_a_ms;

    delay_track(sound const& said, sound const& heard);

    struct window_delay {
        int samples;      ///< what is heard at i was said at i - samples; of the last known window unless it is known
        bool recognised;  ///< no gap of 10 ms in it, correlated by 0.85 at least
    };
    std::vector<window_delay> const& windows() const { return found; }
    /// At a sample of what is heard.
    int at(int sample) const;
    /// Of the recognised windows, from mouth to ear. `sender_ppm`: the speaker's clock against the listener's.
    std::vector<int> delays_ms(int sender_ppm) const;
    /// Median of each second; -1: nothing was recognised.
    std::vector<int> second_ms(int sender_ppm) const;

private:
    struct match {
        int samples;
        double likeness;  ///< magnitude of the normalised correlation
    };
    /// Of what is recognised best in the first second, or else first.
    int first_delay() const;
    window_delay place(int at, int expected) const;
    bool all_audible(int at) const;
    match search(int at, int from, int to) const;
    int delay_ms(int window_number, int sender_ppm) const;

    sound const& said;
    sound const& heard;
    std::vector<std::int64_t> squares = {0};  ///< sums of those of what was said before each sample
    std::vector<window_delay> found;
};

/// Sum of squares; what is outside is zero.
double energy(sound const& x, int at, int length);
/// Whether something is said there.
bool spoken(sound const& x, int at, int length);
/// -1 without values.
int percentile(std::vector<int> values, int percent);
