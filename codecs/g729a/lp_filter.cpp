#include "codecs/g729a/lp_filter.h"

#include <algorithm>
#include <cstring>

#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

// Below, loops over ten samples are unrolled: coefficients, samples and what the filters give stay in registers, and a
// sample is loaded once for the ten outputs that it is part of.

// to[0..9] = from[0..9].
void load_ten(int16_t const* from, int32_t* to) {
#pragma GCC unroll 10
    for (int j = 0; j < lp_order; ++j)
        to[j] = from[j];
}

// c[0] x[-1] + ... + c[9] x[-10].
int32_t past_sum(int32_t const c[lp_order], int32_t const* x) {
    int32_t sum = 0;
#pragma GCC unroll 10
    for (int j = 0; j < lp_order; ++j)
        sum += c[j] * x[-1 - j];
    return sum;
}

// Bits 13 and up of a Q13 sum after rounding, clipped to 16 bits.
int16_t from_q13(int32_t sum) {
    return round(L_shl(sum, 3));
}

int16_t residual_clipping(int16_t const* a, int16_t const* x) {
    int32_t sum = L_mult(x[0], a[0]);
    for (int j = 1; j <= lp_order; ++j)
        sum = L_mac(sum, a[j], x[-j]);
    return from_q13(sum);
}

// The next outputs y of n, a multiple of ten, as long as they and the ten before them are within limit. Returns how
// many. Not inlined, or the registers would not suffice.
[[gnu::noinline]] int synthesis_plain(int16_t const a[lp_size], int16_t const* x, int16_t* y, int n, int32_t limit) {
    int32_t c[lp_order];
    load_ten(a + 1, c);
    for (int i = 0; i < n; i += lp_order) {
        int32_t output[2 * lp_order];
        load_ten(y + i - lp_order, output);
#pragma GCC unroll 10
        for (int j = 0; j < lp_order; ++j) {
            int32_t* const now = output + lp_order + j;
            *now = (4096 * x[i + j] + 0x800 - past_sum(c, now)) >> 12;
            if (static_cast<uint32_t>(*now + limit) > 2 * static_cast<uint32_t>(limit))
                return i + j;
            y[i + j] = static_cast<int16_t>(*now);
        }
    }
    return n;
}

// One output of 1/A(z) from the input x and the past y[-1..-10]; sets clipped when anything does.
int16_t synthesis_clipping(int16_t const* a, int16_t x, int16_t const* y, bool& clipped) {
    int32_t sum = L_mult(x, a[0]);
    for (int j = 1; j <= lp_order; ++j) {
        int32_t const product = L_mult(a[j], y[-j]);
        int32_t difference = 0;
        clipped |= __builtin_sub_overflow(sum, product, &difference) || (product & 1) != 0;
        sum = L_sub(sum, product);
    }
    clipped |= sum < -(1 << 28) || sum > (1 << 28) - 1 - 0x1000;
    return from_q13(sum);
}

}  // namespace

void Residu(int16_t const a[lp_size], int16_t const* x, int16_t y[subframe_size]) {
    if (!within<lp_order + subframe_size>(x - lp_order, fitting_peak(sum_of_magnitudes<lp_size>(a)))) {
        for (int i = 0; i < subframe_size; ++i)
            y[i] = residual_clipping(a, x + i);
        return;
    }
    int32_t c[lp_order];
    load_ten(a + 1, c);
    for (int i = 0; i < subframe_size; i += lp_order) {
        int32_t input[2 * lp_order];
        load_ten(x + i - lp_order, input);
        load_ten(x + i, input + lp_order);
#pragma GCC unroll 10
        for (int j = 0; j < lp_order; ++j) {
            int32_t const* now = input + lp_order + j;
            y[i + j] = sat16((4096 * *now + 0x800 + past_sum(c, now)) >> 12);
        }
    }
}

bool Syn_filt(int16_t const a[lp_size], int16_t const* x, int16_t* y, int n, int16_t const mem[lp_order]) {
    // The Q12 sum of an output is at most 2^27 + weight |y|. While all of the last ten outputs stay within limit it
    // cannot leave 31 bits, and the clipping sum is not needed.
    int32_t const weight = std::max(sum_of_magnitudes<lp_order>(a + 1), 1);
    int32_t const limit = std::min(((1 << 30) - (1 << 27) - 1) / weight, 32767);
    int16_t buffer[lp_order + subframe_size];
    std::memcpy(buffer, mem, lp_order * sizeof *mem);
    int16_t* out = buffer + lp_order;
    bool clipped = false;
    for (int i = 0; i < n;) {
        if (within<lp_order>(out + i - lp_order, limit))
            i += synthesis_plain(a, x + i, out + i, n - i, limit);
        for (int const end = std::min(n, i / lp_order * lp_order + lp_order); i < end; ++i)
            out[i] = synthesis_clipping(a, x[i], out + i, clipped);
    }
    std::memcpy(y, out, static_cast<unsigned>(n) * sizeof *y);
    return clipped;
}

void update_memory(int16_t const* y, int n, int16_t mem[lp_order]) {
    std::memcpy(mem, y + n - lp_order, lp_order * sizeof *mem);
}

void Weight_Az(int16_t const a[lp_size], int16_t gamma, int16_t ap[lp_size]) {
    ap[0] = a[0];
    int16_t factor = gamma;
    for (int i = 1; i < lp_order; ++i) {
        ap[i] = round(L_mult(a[i], factor));
        factor = round(L_mult(factor, gamma));
    }
    ap[lp_order] = round(L_mult(a[lp_order], factor));
}

}  // namespace g729a
