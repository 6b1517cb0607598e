#pragma once

#include <cstdint>

/// Decoded speech that waits for the line, with what went before it, and the two changes of its time scale: one pitch
/// period less or one more, cross-faded, so that nothing jumps (WSOLA: Verhelst and Roelands, ICASSP 1993). Samples are
/// 16 bits at 8 kHz. A fixed array, nothing is allocated.
class speech_queue {
public:
    /// Samples before the front that stay readable.
    static constexpr int remembered = 512;
    /// Samples that may wait.
    static constexpr int room = 2048;
    static constexpr int shortest_period = 20;  ///< samples: 400 Hz
    static constexpr int longest_period = 120;  ///< samples: 67 Hz

    int size() const { return end - begin; }
    /// The next sample to be played; front()[-1] was played last.
    std::int16_t const* front() const { return samples + begin; }
    /// Behind the last one; back()[-1] is the last one.
    std::int16_t const* back() const { return samples + end; }
    /// Room for n more at the end (`room` must not be exceeded), which the caller fills.
    std::int16_t* grow(int n);
    /// Takes n off the front; not more than size().
    void drop(int n) { begin += n; }
    /// Nothing waits.
    void clear() { begin = end; }

    /// How alike two neighbouring stretches must be for a change: squared correlation, in 1/1024. Quiet signals are
    /// changed whatever they are.
    struct likeness {
        int least;
    };
    /// Takes a period of at most `longest` samples out at the front. Returns its length; 0: there is none, or too
    /// little waits to find it.
    int cut(int longest, likeness wanted);
    /// Doubles a period of at most `longest` samples at the front. Returns its length; 0: as above.
    int stretch(int longest, likeness wanted);

    /// The lag between `shortest` and `longest` at which `length` samples at `x` are most like those `lag` later (or
    /// earlier, when backward); `alike` becomes the squared correlation in 1/1024, 1024 for a quiet signal.
    static int find_period(std::int16_t const* x, int length, int shortest, int longest, bool backward, int& alike);

private:
    std::int16_t samples[remembered + room] = {};
    int begin = remembered;
    int end = remembered;
};

/// Sample k of n of a linear cross-fade.
constexpr std::int16_t cross_fade(int from, int to, int k, int n) {
    return static_cast<std::int16_t>(from + (to - from) * k / n);
}
