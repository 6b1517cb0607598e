#include "codecs/g729a/lp_filter.h"

#include <algorithm>
#include <cstring>

#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

// Coefficients as full words, which suits the multipliers.
struct coefficients {
    int32_t c[lp_size];

    explicit coefficients(int16_t const a[lp_size]) { std::copy(a, a + lp_size, c); }

    // c[1] x[-1] + ... + c[10] x[-10].
    int32_t past_sum(int16_t const* x) const {
        return c[1] * x[-1] + c[2] * x[-2] + c[3] * x[-3] + c[4] * x[-4] + c[5] * x[-5] + c[6] * x[-6] + c[7] * x[-7] +
               c[8] * x[-8] + c[9] * x[-9] + c[10] * x[-10];
    }
};

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
    if (within<lp_order + subframe_size>(x - lp_order, fitting_peak(sum_of_magnitudes<lp_size>(a)))) {
        coefficients const filter(a);
        for (int i = 0; i < subframe_size; ++i)
            y[i] = sat16((4096 * x[i] + filter.past_sum(x + i) + 0x800) >> 12);
    } else {
        for (int i = 0; i < subframe_size; ++i)
            y[i] = residual_clipping(a, x + i);
    }
}

bool Syn_filt(int16_t const a[lp_size], int16_t const* x, int16_t* y, int n, int16_t const mem[lp_order]) {
    // The Q13 sum of an output is at most 2^28 + 2 weight |y|. While all of the last ten outputs stay within
    // limit it cannot leave 32 bits, and the clipping sum is not needed.
    int32_t const weight = std::max(sum_of_magnitudes<lp_order>(a + 1), 1);
    int32_t const limit = std::min(((1 << 30) - (1 << 27) - 1) / weight, 32768);
    auto const beyond = [limit](int32_t value) {
        return static_cast<uint32_t>(value + limit) > 2 * static_cast<uint32_t>(limit);
    };
    int16_t buffer[lp_order + 40];
    int16_t* out = buffer + lp_order;
    int clipping_end = 0;  // outputs before this one need the clipping sum
    for (int i = -lp_order; i < 0; ++i) {
        out[i] = mem[i + lp_order];
        if (beyond(out[i]))
            clipping_end = i + lp_order + 1;
    }
    coefficients const filter(a);
    bool clipped = false;
    for (int i = 0; i < n; ++i) {
        if (i < clipping_end) {
            out[i] = synthesis_clipping(a, x[i], out + i, clipped);
        } else {
            int32_t const sum = x[i] * 4096 - filter.past_sum(out + i);  // Q12
            out[i] = static_cast<int16_t>((sum + 0x800) >> 12);
            if (static_cast<uint32_t>(sum + (1 << 27)) >= (1u << 28) - 0x800) {
                out[i] = sat16((sum + 0x800) >> 12);
                clipped = true;
            }
        }
        if (beyond(out[i]))
            clipping_end = i + lp_order + 1;
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
