#include "codecs/g722.h"

#include <algorithm>

#include "codecs/g722_tables.h"

namespace {

using namespace g722_tables;

/// Limits to 15 bits, the range of a band's signal and of the 16 kHz output.
int limit15(int value) {
    return g722_saturate(2 * value) >> 1;
}

/// LOGSCL, LOGSCH.
int adapt_log_scale(int nb, level const& meaning, int largest) {
    return std::clamp(g722_leak<7>(nb, meaning.added), 0, largest);
}

/// A difference's magnitude as both quantizers compare it with their levels: one less for negative ones.
int folded(int difference) {
    return difference ^ difference >> 31;
}

/// QUANTL: which of 30 intervals the difference falls in at scale det. Returns the 6-bit code.
///
/// The interval is the number of decision levels at or below the magnitude, without that of interval 0: five steps of a
/// binary search. The highest level there is, 11676, is so low that the difference need not be limited to 16 bits
/// (SUBTRA).
int quantize_low(int difference, int det) {
    // magnitude >= level * det >> 12, without the shift.
    int const limit = (folded(difference) + 1) << 12;
    low_interval const* interval = low_intervals;
#pragma GCC unroll 5
    for (int step = 16; step > 0; step /= 2)
        interval += static_cast<int>(interval[step].q6 * det < limit) * step;
    return interval->il[difference < 0];
}

/// QUANTH. Returns the 2-bit code.
int quantize_high(int difference, int det) {
    bool const large = folded(difference) >= q2 * det >> 12;
    return (difference < 0 ? 0 : 2) + (large ? 0 : 1);
}

/// sums[i]: what a filter, whose coefficients begin with h[first], makes of x[i] and the 11 samples behind it. Four
/// sums together take a quarter of the moves of samples and coefficients, and as much as registers hold.
template <int first>
void filter(int n, short const* x, int* sums) {
    for (int i = 0; i < n; i += g722::delay_line::at_once) {
#pragma GCC unroll 4
        for (int j = 0; j < g722::delay_line::at_once; j++) {
            int sum = 0;
#pragma GCC unroll 12
            for (int k = 0; k < 12; k++)
                sum += h[2 * k + first] * x[i + j + 11 - k];
            sums[i + j] = sum;
        }
    }
}

/// Calls handle(at, count) for n samples in pieces.
template <typename function>
void in_pieces(int n, function handle) {
    for (int at = 0; at < n; at += g722::piece)
        handle(at, std::min(g722::piece, n - at));
}

}  // namespace

// Each band's loop works on a copy: nothing that is written may alias it, so it can stay in registers.
//
// Up to these scale factors the last six differences, doubled, are 27,464 together at most (30,186 in the higher band),
// for a logarithmic scale factor falls by no more than 1/127 of itself and 62 in a step (216): none of them can have
// been much larger.
constexpr int quiet_low = 3000;
constexpr int quiet_high = 7000;

// A level that is not 0 gives a difference that is not: the least is 32 * 1200 >> 15.
inline void g722::lower_band::adapt(int code) {
    level const& meaning = low_levels[code];
    int const difference = det * meaning.qm >> 15;
    nb = adapt_log_scale(nb, meaning, 18432);
    det = low_scale[nb >> 6];
    predictor.process(difference, meaning.gain, det > quiet_low);
}

[[gnu::flatten]] void g722::lower_band::encode(int n, short const* in, unsigned char* out, unsigned others) {
    lower_band band = *this;
    for (int i = 0; i < n; i++) {
        int const code = quantize_low(in[i] - band.predictor.estimate(), band.det);
        out[i] = static_cast<unsigned char>(others | static_cast<unsigned>(code));
        band.adapt(code >> 2);
    }
    *this = band;
}

[[gnu::flatten]] void g722::lower_band::decode(int n, unsigned char const* in, short* out) {
    lower_band band = *this;
    for (int i = 0; i < n; i++) {
        int const code = in[i] & 63;
        out[i] = static_cast<short>(limit15(band.predictor.estimate() + (band.det * qm6[code] >> 15)));
        band.adapt(code >> 2);
    }
    *this = band;
}

inline void g722::higher_band::adapt(int code) {
    level const& meaning = high_levels[code];
    int const difference = det * meaning.qm >> 15;
    nb = adapt_log_scale(nb, meaning, 22528);
    det = scale[static_cast<unsigned>(nb >> 6)];
    predictor.process(difference, difference == 0 ? 0 : meaning.gain, det > quiet_high);
}

[[gnu::flatten]] void g722::higher_band::encode(int n, short const* in, unsigned char* out) {
    higher_band band = *this;
    for (int i = 0; i < n; i++) {
        int const code = quantize_high(in[i] - band.predictor.estimate(), band.det);
        out[i] = static_cast<unsigned char>(code << 6 | out[i]);
        band.adapt(code);
    }
    *this = band;
}

template <typename function>
[[gnu::flatten]] void g722::higher_band::decode(int n, unsigned char const* in, function take) {
    higher_band band = *this;
    for (int i = 0; i < n; i++) {
        int const code = in[i] >> 6;
        take(i, limit15(band.predictor.estimate() + (band.det * high_levels[code].qm >> 15)));
        band.adapt(code);
    }
    *this = band;
}

template <typename function>
void g722::delay_line::process(int n, samples& x, function take) {
    std::copy_n(even, before, x.even);
    std::copy_n(odd, before, x.odd);
    std::fill_n(x.even + before + n, at_once - 1, short{0});
    std::fill_n(x.odd + before + n, at_once - 1, short{0});
    int even_sums[piece + at_once], odd_sums[piece + at_once];
    filter<0>(n, x.even, even_sums);
    filter<1>(n, x.odd, odd_sums);
    for (int i = 0; i < n; i++)
        take(i, even_sums[i], odd_sums[i]);
    std::copy_n(x.even + n, before, even);
    std::copy_n(x.odd + n, before, odd);
}

template <typename function>
void g722::encoder::process(int n, delay_line::samples& x, unsigned char* out, function limit) {
    short low_samples[piece], high_samples[piece];
    line.process(n, x, [&](int i, int even, int odd) {
        low_samples[i] = static_cast<short>(limit((even + odd) >> 13));
        high_samples[i] = static_cast<short>(limit((even - odd) >> 13));
    });
    low.encode(n, low_samples, out, 0);
    high.encode(n, high_samples, out);
}

void g722::encoder::process(int n, short const* in, unsigned char* out) {
    in_pieces(n, [&](int at, int count) {
        delay_line::samples x;
        for (int i = 0; i < count; i++) {
            x.odd[delay_line::before + i] = in[2 * (at + i)];
            x.even[delay_line::before + i] = in[2 * (at + i) + 1];
        }
        process(count, x, out + at, limit15);
    });
}

void g722::encoder::process_interpolated(int n, short const* in, unsigned char* out) {
    in_pieces(n, [&](int at, int count) {
        delay_line::samples x;
        int last = previous;
        for (int i = 0; i < count; i++) {
            int const next = in[at + i] / 4;
            x.odd[delay_line::before + i] = static_cast<short>((last + next) / 2);
            x.even[delay_line::before + i] = static_cast<short>(next);
            last = next;
        }
        previous = static_cast<short>(last);
        // Of 14 bits the filters make 12,964 at most: the sum of all coefficients without their signs.
        process(count, x, out + at, [](int sample) { return sample; });
    });
}

void g722::encoder::process_low(int n, short const* in, unsigned char* out) {
    constexpr unsigned silent_high = 3 << 6;
    in_pieces(n, [&](int at, int count) {
        short samples[piece];
        for (int i = 0; i < count; i++)
            samples[i] = static_cast<short>(in[at + i] >> 1);
        low.encode(count, samples, out + at, silent_high);
    });
}

template <typename function>
void g722::decoder::process(int n, unsigned char const* in, function take) {
    in_pieces(n, [&](int at, int count) {
        delay_line::samples x;
        low.decode(count, in + at, x.even + delay_line::before);
        high.decode(count, in + at, [&](int i, int rh) {
            int const rl = x.even[delay_line::before + i];
            x.even[delay_line::before + i] = static_cast<short>(rl - rh);
            x.odd[delay_line::before + i] = static_cast<short>(rl + rh);
        });
        line.process(count, x,
                     [&](int i, int even, int odd) { take(at + i, limit15(even >> 12), limit15(odd >> 12)); });
    });
}

void g722::decoder::process(int n, unsigned char const* in, short* out) {
    process(n, in, [=](int i, int first, int second) {
        out[2 * i] = static_cast<short>(first);
        out[2 * i + 1] = static_cast<short>(second);
    });
}

void g722::decoder::process_averaged(int n, unsigned char const* in, short* out) {
    process(n, in, [=](int i, int first, int second) {
        out[i] = static_cast<short>(g722_saturate(4 * ((first + second) / 2)));
    });
}

void g722::decoder::process_low(int n, unsigned char const* in, short* out) {
    in_pieces(n, [&](int at, int count) {
        low.decode(count, in + at, out + at);
        for (int i = at; i < at + count; i++)
            out[i] = static_cast<short>(2 * out[i]);
    });
}

void g722::encode(int n, short const* in, unsigned char* out) {
    low_alone ? send.process_low(n, in, out) : send.process_interpolated(n, in, out);
}

void g722::decode(int n, short* out, unsigned char const* in) {
    low_alone ? receive.process_low(n, in, out) : receive.process_averaged(n, in, out);
}
