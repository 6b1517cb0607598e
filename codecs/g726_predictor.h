#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>

#include "codecs/sign.h"

/// The arithmetic of ITU-T G.726: two's complement of 16 bits, floating point of 11 bits.
namespace g726_arithmetic {

/// Two's complement in 16 bits: the Recommendation's sums are taken modulo 2^16.
inline int wrap16(int value) {
    return static_cast<std::int16_t>(value);
}

/// A number as mantissa * 2^-zeros, mantissa 32..63, the point behind the 26th bit. `instead` stands for 0.
struct float_parts {
    int zeros;
    unsigned mantissa;
};

inline float_parts split(unsigned number, unsigned instead) {
    unsigned const scaled = number == 0 ? instead : number;
    int const zeros = std::countl_zero(scaled);
    return {zeros, scaled << zeros >> 26};
}

/// The 11-bit floating point format of the predictor's signal histories in one word, laid out for multiply():
///     bits 0..4     15 - exponent, exponent 0..15
///     bits 5..10    mantissa, 32..63
///     bits 11..31   sign: all 1 when negative
using float11 = std::int32_t;

/// FLOATA, FLOATB: of a magnitude of 15 bits, which moves to the top of the word.
inline float11 to_float(int sign, int magnitude) {
    float_parts const parts = split(static_cast<unsigned>(magnitude) << 17, 1 << 16);
    return (sign << 11) | static_cast<int>(parts.mantissa << 5) | parts.zeros;
}

/// FMULT: product of a Q14 coefficient and a signal, Q1, 16 bits. The coefficient's 13 bits without sign move to the
/// top of the word, where a 14th falls off; then the zeros of both are the shift that the product needs.
inline int multiply(int coefficient, float11 signal) {
    unsigned const magnitude = static_cast<unsigned>(with_sign(coefficient >> 2, sign_of(coefficient)));
    float_parts const factor = split(magnitude << 19, 1 << 18);
    // The mantissas' product is rounded to units of 16; the signal's brings 5 bits below the point with it.
    unsigned const mantissa = static_cast<unsigned>(signal) & 63u << 5;
    unsigned const product = (mantissa * factor.mantissa + (48 << 5)) & ~511u;
    int const result = static_cast<int>(product >> ((signal + factor.zeros) & 31) & 32767);
    return with_sign(result, sign_of(signal) ^ sign_of(coefficient));
}

}  // namespace g726_arithmetic

/// The adaptive predictor of ITU-T G.726, two poles and six zeros. It knows nothing of codewords and scale factors.
/// Blocks, state and signals bear the Recommendation's names.
class g726_predictor {
public:
    /// Quantized difference signal in sign and magnitude: a magnitude of 0 has a sign too.
    struct quantized_difference {
        int sign;       ///< 0, or -1 when negative
        int magnitude;  ///< 15 bits
    };

    /// The Recommendation's initial state.
    void reset();
    /// Estimate of the next sample: 15-bit two's complement.
    int estimate() const { return se; }
    /// One step. transition: clears the coefficients instead of adapting them. leak: of the zeros' coefficients, as a
    /// shift. Returns the reconstructed signal, 16 bits.
    int process(quantized_difference difference, bool transition, int leak);
    /// TONE: whether the poles are those of a tone. A transition clears them, and with them the tone.
    bool has_tone() const { return a[1] < -11776; }

private:
    void adapt_poles(int partial);
    int adapt_zeros(quantized_difference difference, bool transition, int leak);
    void clear_coefficients();

    int a[2];                        ///< pole coefficients, Q14
    int b[6];                        ///< zero coefficients, Q14
    g726_arithmetic::float11 sr[2];  ///< reconstructed signal, newest first
    g726_arithmetic::float11 dq[6];  ///< quantized difference signal, newest first
    int se, sez;                     ///< estimate, and what the zeros add to it: 15-bit two's complement
    int pk[2];                       ///< sign (0 or -1) of the partially reconstructed signal, newest first
};

inline void g726_predictor::reset() {
    clear_coefficients();
    std::fill(std::begin(sr), std::end(sr), g726_arithmetic::to_float(0, 0));
    std::fill(std::begin(dq), std::end(dq), g726_arithmetic::to_float(0, 0));
    pk[0] = pk[1] = 0;
    se = sez = 0;
}

/// ADDB, ADDC, FLOATB, UPA1, LIMC, UPA2, LIMD, TRIGB, the delays, and the estimates of the next sample (ACCUM).
inline int g726_predictor::process(quantized_difference difference, bool transition, int leak) {
    using namespace g726_arithmetic;
    int const dqi = with_sign(difference.magnitude, difference.sign);
    int const reconstructed = wrap16(dqi + se);
    int const partial = wrap16(dqi + sez);
    if (transition)
        clear_coefficients();
    else
        adapt_poles(partial);
    pk[1] = pk[0];
    pk[0] = sign_of(partial);
    sr[1] = sr[0];
    sr[0] = to_float(sign_of(reconstructed), with_sign(reconstructed, sign_of(reconstructed)));
    int const zeros = adapt_zeros(difference, transition, leak);
    int const all = zeros + multiply(a[0], sr[0]) + multiply(a[1], sr[1]);
    se = wrap16(all) >> 1;
    sez = wrap16(zeros) >> 1;
    return reconstructed;
}

/// UPA2, LIMC, UPA1, LIMD. `partial` is the signal reconstructed from the zeros alone.
inline void g726_predictor::adapt_poles(int partial) {
    using namespace g726_arithmetic;
    int const pks1 = sign_of(partial) ^ pk[0];
    int const pks2 = sign_of(partial) ^ pk[1];
    int const fa = with_sign(std::clamp(a[0], -8191, 8191) << 2, ~pks1);
    int const uga2 = partial == 0 ? 0 : (with_sign(16384, pks2) + fa) >> 7;
    int const uga1 = partial == 0 ? 0 : with_sign(192, pks1);
    a[1] = std::clamp(a[1] + uga2 - (a[1] >> 7), -12288, 12288);
    int const limit = 15360 - a[1];
    a[0] = std::clamp(a[0] + uga1 - (a[0] >> 8), -limit, limit);
}

/// UPB, FLOATA, the delays and FMULT: what the zeros add to the next estimate. Each coefficient and signal is in a
/// register once for all of them. After a transition the coefficients are zero and stay so.
inline int g726_predictor::adapt_zeros(quantized_difference difference, bool transition, int leak) {
    using namespace g726_arithmetic;
    int const adapts =
        static_cast<int>(difference.magnitude != 0) & static_cast<int>(!transition);  // no branches: six would follow
    int const gain = with_sign(adapts << 7, difference.sign);
    int sum = 0;
    // Unrolled: a loop's counting and addressing would be a tenth of what a multiplication takes.
#pragma GCC unroll 6
    for (int i = 5; i >= 0; i--) {
        b[i] = wrap16(b[i] + with_sign(gain, sign_of(dq[i])) - (b[i] >> leak));
        dq[i] = i > 0 ? dq[i - 1] : to_float(difference.sign, difference.magnitude);
        sum += multiply(b[i], dq[i]);
    }
    return sum;
}

/// TRIGB.
inline void g726_predictor::clear_coefficients() {
    std::fill(std::begin(a), std::end(a), 0);
    std::fill(std::begin(b), std::end(b), 0);
}
