#include "codecs/g722.h"

#include <algorithm>

#include "codecs/g722_tables.h"

namespace {

using namespace g722_tables;

/// Limits to 15 bits, the range of a band's signal and of the 16 kHz output.
int limit15(int value) {
    return std::clamp(value, -16384, 16383);
}

/// LOGSCL, LOGSCH.
int adapt_log_scale(int nb, int multiplier, int largest) {
    return std::clamp((nb * 127 >> 7) + multiplier, 0, largest);
}

/// SCALEL, SCALEH: 2^(nb / 2048 + 14 - shift), truncated to a multiple of 4.
int linear_scale(int nb, int shift) {
    return (2 * ilb[nb >> 6 & 31] >> (shift - (nb >> 11))) * 4;
}

/// A difference's magnitude as both quantizers compare it with their levels: one less for negative ones.
int folded(int difference) {
    return difference ^ difference >> 31;
}

/// QUANTL: which of 30 intervals the difference falls in at scale det. Returns the 6-bit code.
///
/// The interval is the number of decision levels at or below the magnitude, counted in fours, then singly. The
/// highest level there is, 11676, is so low that the difference need not be limited to 16 bits (SUBTRA).
int quantize_low(int difference, int det) {
    // magnitude >= level * det >> 12, without the shift.
    int const limit = (folded(difference) + 1) << 12;
    int group = 0;
#pragma GCC unroll 7
    for (int i = 4; i < 32; i += 4)
        group += q6[i] * det < limit ? 4 : 0;
    int interval = group;
#pragma GCC unroll 3
    for (int i = 1; i < 4; i++)
        interval += q6[group + i] * det < limit ? 1 : 0;
    interval = std::min(interval, 29);
    return difference < 0 ? iln[interval] : ilp[interval];
}

/// QUANTH. Returns the 2-bit code.
int quantize_high(int difference, int det) {
    bool const large = folded(difference) >= q2 * det >> 12;
    return (difference < 0 ? 0 : 2) + (large ? 0 : 1);
}

}  // namespace

int g722::block4l::process(int code) {
    int const difference = det * qm4[code] >> 15;
    nb = adapt_log_scale(nb, wl[code], 18432);
    det = linear_scale(nb, 9);
    return predictor.process(difference);
}

int g722::block4h::process(int code) {
    int const difference = det * qm2[code] >> 15;
    nb = adapt_log_scale(nb, wh[code], 22528);
    det = linear_scale(nb, 11);
    return predictor.process(difference);
}

g722::pair g722::delay_line::process(int even, int odd) {
    at = at == 0 ? 22 : at - 2;
    samples[at] = samples[at + 24] = even;
    samples[at + 1] = samples[at + 25] = odd;
    int const* const x = samples + at;
    pair sums{};
#pragma GCC unroll 12
    for (int i = 0; i < 24; i += 2) {
        sums.first += h[i] * x[i];
        sums.second += h[i + 1] * x[i + 1];
    }
    return sums;
}

unsigned char g722::encoder::process(short first, short second) {
    pair const sums = line.process(second, first);
    int const xl = limit15((sums.first + sums.second) >> 13);
    int const xh = limit15((sums.first - sums.second) >> 13);
    int const low_code = quantize_low(xl - low.estimate(), low.scale());
    int const high_code = quantize_high(xh - high.estimate(), high.scale());
    low.process(low_code >> 2);
    high.process(high_code);
    return static_cast<unsigned char>(high_code << 6 | low_code);
}

g722::pair g722::decoder::process_pair(int low_code, int high_code) {
    int const rl = limit15(low.estimate() + (low.scale() * qm6[low_code] >> 15));
    int const rh = limit15(high.estimate() + (high.scale() * qm2[high_code] >> 15));
    low.process(low_code >> 2);
    high.process(high_code);
    pair const sums = line.process(rl - rh, rl + rh);
    return {limit15(sums.first >> 12), limit15(sums.second >> 12)};
}

int g722::decoder::process(int low_code, int high_code) {
    pair const samples = process_pair(low_code, high_code);
    return (samples.first + samples.second) / 2;
}

unsigned char g722::encoder::process_low(int sample) {
    constexpr int silent_high = 3 << 6;
    int const code = quantize_low(sample - low.estimate(), low.scale());
    low.process(code >> 2);
    return static_cast<unsigned char>(silent_high | code);
}

int g722::decoder::process_low(int low_code) {
    int const rl = limit15(low.estimate() + (low.scale() * qm6[low_code] >> 15));
    low.process(low_code >> 2);
    return rl;
}

void g722::encode(int n, short const* in, unsigned char* out) {
    low_alone ? encode_low(n, in, out) : encode_interpolated(n, in, out);
}

void g722::decode(int n, short* out, unsigned char const* in) {
    low_alone ? decode_low(n, out, in) : decode_averaged(n, out, in);
}

// Flattened: each direction becomes one piece of code that keeps the state in registers.
[[gnu::flatten]] void g722::encode_interpolated(int n, short const* in, unsigned char* out) {
    for (int i = 0; i < n; i++) {
        short const x = static_cast<short>(in[i] / 4);
        out[i] = send.process(static_cast<short>((previous + x) / 2), x);
        previous = x;
    }
}

[[gnu::flatten]] void g722::decode_averaged(int n, short* out, unsigned char const* in) {
    for (int i = 0; i < n; i++)
        out[i] = static_cast<short>(g722_saturate(4 * receive.process(in[i] & 63, in[i] >> 6)));
}

[[gnu::flatten]] void g722::encode_low(int n, short const* in, unsigned char* out) {
    for (int i = 0; i < n; i++)
        out[i] = send.process_low(in[i] >> 1);
}

[[gnu::flatten]] void g722::decode_low(int n, short* out, unsigned char const* in) {
    for (int i = 0; i < n; i++)
        out[i] = static_cast<short>(2 * receive.process_low(in[i] & 63));
}
