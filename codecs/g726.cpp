#include "codecs/g726.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <iterator>

/// The adaptive quantizer at one rate, by magnitude code: the codeword without its sign.
struct g726::quantizer {
    std::int16_t thresholds[15];  ///< code i begins at thresholds[i - 1]; base-2 logarithms in Q7
    level levels[16];
};

/// The quantizer, W(I) and F(I) tables of ITU-T G.726 at 2, 3, 4 and 5 bits.
constexpr g726::quantizer g726::quantizers[4] = {
    {{261}, {{116, -22, 0}, {365, 439, 7}}},
    {{8, 218, 331}, {{-2048, -4, 0}, {135, 30, 1}, {273, 137, 2}, {373, 582, 7}}},
    {{-124, 80, 178, 246, 300, 349, 400},
     {{-2048, -12, 0},
      {4, 18, 0},
      {135, 41, 0},
      {213, 64, 1},
      {273, 112, 1},
      {323, 198, 1},
      {373, 355, 3},
      {425, 1122, 7}}},
    {{-122, -16, 68, 139, 198, 250, 298, 339, 378, 413, 445, 475, 502, 528, 553},
     {{-2048, 14, 0},
      {-66, 14, 0},
      {28, 24, 0},
      {104, 39, 0},
      {169, 40, 0},
      {224, 41, 1},
      {274, 58, 1},
      {318, 100, 1},
      {358, 141, 1},
      {395, 179, 1},
      {429, 219, 2},
      {459, 280, 3},
      {488, 358, 4},
      {514, 440, 5},
      {539, 529, 6},
      {566, 696, 6}}},
};

namespace {

/// Two's complement in 16 bits: the Recommendation's sums are taken modulo 2^16.
int wrap16(int value) {
    return static_cast<std::int16_t>(value);
}

/// 0 for value >= 0, else -1.
int sign_of(int value) {
    return value >> 31;
}

/// value, negated when sign is -1.
int with_sign(int value, int sign) {
    return (value ^ sign) - sign;
}

/// Position of the highest bit set in value > 0.
int highest_bit(unsigned value) {
    return 31 ^ std::countl_zero(value);
}

/// A magnitude of up to 15 bits as mantissa * 2^(exponent - 6), mantissa 32..63; zero has mantissa 32 too.
struct magnitude_parts {
    int zeros;  ///< 26 - exponent: the bits above the mantissa in a word of 32
    unsigned mantissa;
};

magnitude_parts split(int magnitude) {
    unsigned const scaled = static_cast<unsigned>(std::max(magnitude << 6, 32));
    int const zeros = std::countl_zero(scaled);
    return {zeros, scaled << zeros >> 26};
}

}  // namespace

g726::g726() {
    reset();
    set_rate(rate::bits4);
}

void g726::reset() {
    yu = 544;
    yl = 34816;
    dms = dml = ap = 0;
    clear_predictor_coefficients();
    std::fill(std::begin(sr), std::end(sr), to_float(0, 0));
    std::fill(std::begin(dq), std::end(dq), to_float(0, 0));
    pk[0] = pk[1] = 0;
    td = false;
}

void g726::set_rate(g726::rate bits) {
    width = static_cast<std::uint8_t>(bits);
}

// Flattened: each direction becomes one straight piece of code with `encoding` known.
[[gnu::flatten]] unsigned g726::encode(unsigned sample) {
    int const linear = static_cast<std::int16_t>(sample) >> 2;
    return static_cast<unsigned>(encode_decode(static_cast<unsigned>(linear), true));
}

[[gnu::flatten]] int g726::decode(unsigned codeword) {
    return encode_decode(codeword & ((1u << width) - 1), false) * 4;
}

int g726::encode_decode(unsigned value, bool encoding) {
    int const y = quantizer_scale_factor_adaptation1(adaptation_speed_control1());
    estimate const estimates = adaptative_predictor_and_reconstructed_signal_calculator1();
    unsigned codeword = value;
    if (encoding)
        codeword = adaptive_quantizer(difference_signal_computation(static_cast<int>(value), estimates.se), y);
    level const& meaning = level_of(codeword);
    quantized_difference const difference = inverse_adaptive_quantizer(codeword, y);
    bool const tr = tone_and_transition_detector1(difference.magnitude);
    int const reconstructed = adaptative_predictor_and_reconstructed_signal_calculator2(difference, estimates, tr);
    tone_and_transition_detector2();
    adaptation_speed_control2(meaning.fi, y, tr);
    quantizer_scale_factor_adaptation2(meaning.wi, y);
    return encoding ? static_cast<int>(codeword) : output_limiting(reconstructed);
}

inline g726::float11 g726::to_float(int sign, int magnitude) {
    magnitude_parts const parts = split(magnitude);
    return (sign << 11) | static_cast<int>(parts.mantissa << 5) | ((parts.zeros - 24) & 31);
}

/// FMULT: product of a Q14 coefficient and a signal, Q1, 16 bits.
inline int g726::multiply(int coefficient, float11 signal) {
    magnitude_parts const factor = split(with_sign(coefficient >> 2, sign_of(coefficient)) & 8191);
    // The mantissas' product is rounded to units of 16; the signal's brings 5 bits below the point with it, which the
    // shift expects.
    unsigned const mantissa = static_cast<unsigned>(signal) & 63u << 5;
    unsigned const product = (mantissa * factor.mantissa + (48 << 5)) & ~511u;
    int const magnitude = static_cast<int>(product >> ((signal + factor.zeros) & 31) & 32767);
    return with_sign(magnitude, sign_of(signal ^ coefficient));
}

inline g726::level const& g726::level_of(unsigned codeword) const {
    unsigned const sign = 0 - (codeword >> (width - 1));
    return quantizers[width - 2].levels[(codeword ^ sign) & ((1u << (width - 1)) - 1)];
}

/// LIMA. Returns AL, Q6: 0..64.
inline int g726::adaptation_speed_control1() const {
    return std::min(ap >> 2, 64);
}

/// FILTA, FILTB, SUBTC, FILTC, TRIGA.
inline void g726::adaptation_speed_control2(int fi, int y, bool tr) {
    dms += ((fi << 9) - dms) >> 5;
    dml += ((fi << 11) - dml) >> 7;
    int const distance = std::abs((dms << 2) - dml);
    bool const fast = y < 1536 || distance >= dml >> 3 || td;
    ap = tr ? 256 : ap + (((fast ? 512 : 0) - ap) >> 4);
}

/// MIX: mixes both scale factors in the ratio AL, rounding toward the slow one. Returns Y, Q9.
inline int g726::quantizer_scale_factor_adaptation1(int al) const {
    int const slow = yl >> 6;
    int const difference = yu - slow;
    int const sign = sign_of(difference);
    return slow + with_sign((with_sign(difference, sign) * al) >> 6, sign);
}

/// FILTD, LIMB, FILTE.
inline void g726::quantizer_scale_factor_adaptation2(int wi, int y) {
    yu = std::clamp(y + (((wi << 5) - y) >> 5), 544, 5120);
    yl += yu + (-yl >> 6);
}

/// FMULT, ACCUM.
inline g726::estimate g726::adaptative_predictor_and_reconstructed_signal_calculator1() const {
    int zeros = 0;
    // Unrolled: a loop's counting and addressing would be a tenth of what a multiplication takes.
#pragma GCC unroll 6
    for (int i = 0; i < 6; i++)
        zeros += multiply(b[i], dq[i]);
    int const all = zeros + multiply(a[0], sr[0]) + multiply(a[1], sr[1]);
    return {wrap16(all) >> 1, wrap16(zeros) >> 1};
}

/// ADDB, ADDC, FLOATA, FLOATB, UPA1, LIMC, UPA2, LIMD, UPB, TRIGB and the delays. Returns the reconstructed
/// signal.
inline int g726::adaptative_predictor_and_reconstructed_signal_calculator2(quantized_difference difference,
                                                                           estimate const& estimates, bool tr) {
    int const dqi = with_sign(difference.magnitude, difference.sign);
    int const reconstructed = wrap16(dqi + estimates.se);
    int const partial = wrap16(dqi + estimates.sez);
    if (tr) {
        clear_predictor_coefficients();
    } else {
        adapt_poles(partial);
        adapt_zeros(difference);
    }
#pragma GCC unroll 5
    for (int i = 5; i > 0; i--)
        dq[i] = dq[i - 1];
    dq[0] = to_float(difference.sign, difference.magnitude);
    sr[1] = sr[0];
    sr[0] = to_float(sign_of(reconstructed), with_sign(reconstructed, sign_of(reconstructed)) & 32767);
    pk[1] = pk[0];
    pk[0] = sign_of(partial);
    return reconstructed;
}

/// UPA2, LIMC, UPA1, LIMD. `partial` is the signal reconstructed from the zeros alone.
inline void g726::adapt_poles(int partial) {
    int const pks1 = sign_of(partial) ^ pk[0];
    int const pks2 = sign_of(partial) ^ pk[1];
    int const fa = with_sign(std::clamp(a[0], -8191, 8191) << 2, ~pks1);
    int const uga2 = partial == 0 ? 0 : (with_sign(16384, pks2) + fa) >> 7;
    int const uga1 = partial == 0 ? 0 : with_sign(192, pks1);
    a[1] = std::clamp(a[1] + uga2 - (a[1] >> 7), -12288, 12288);
    int const limit = 15360 - a[1];
    a[0] = std::clamp(a[0] + uga1 - (a[0] >> 8), -limit, limit);
}

/// UPB.
inline void g726::adapt_zeros(quantized_difference difference) {
    int const gain = difference.magnitude == 0 ? 0 : 128;
    int const leak = width == 5 ? 9 : 8;
#pragma GCC unroll 6
    for (int i = 0; i < 6; i++)
        b[i] = static_cast<std::int16_t>(b[i] + with_sign(gain, difference.sign ^ sign_of(dq[i])) - (b[i] >> leak));
}

/// TRIGB.
inline void g726::clear_predictor_coefficients() {
    std::fill(std::begin(a), std::end(a), 0);
    std::fill(std::begin(b), std::end(b), std::int16_t{0});
}

/// SUBTA. Returns D, 16 bits.
inline int g726::difference_signal_computation(int sl, int se) {
    return sl - se;
}

/// LOG, SUBTB, QUAN: quantizes the base-2 logarithm of d, normalized by the scale factor y.
inline unsigned g726::adaptive_quantizer(int d, int y) const {
    int const sign = sign_of(d);
    unsigned const magnitude = static_cast<unsigned>(with_sign(d, sign));
    int const exponent = highest_bit(magnitude | 1);
    int const mantissa = static_cast<int>(magnitude << 7 >> exponent) & 127;
    int const dln = (exponent << 7) + mantissa - (y >> 2);

    std::int16_t const* const thresholds = quantizers[width - 2].thresholds;
    unsigned code = 0;
    for (unsigned step = 1u << (width - 2); step > 0; step >>= 1)
        code += dln >= thresholds[code + step - 1] ? step : 0;

    unsigned const mask = (1u << width) - 1;
    unsigned const codeword = (code ^ static_cast<unsigned>(sign)) & mask;
    return codeword == 0 && width > 2 ? mask : codeword;
}

/// RECONST, ADDA, ANTILOG.
inline g726::quantized_difference g726::inverse_adaptive_quantizer(unsigned codeword, int y) const {
    int const sign = -static_cast<int>(codeword >> (width - 1));
    int const dql = level_of(codeword).dqln + (y >> 2);
    if (dql < 0)
        return {sign, 0};
    return {sign, ((128 + (dql & 127)) << 7) >> (14 - (dql >> 7))};
}

/// TRANS. Whether the difference signal jumps while a tone is detected.
inline bool g726::tone_and_transition_detector1(int dq_magnitude) const {
    int const exponent = yl >> 15;
    int const threshold = exponent > 9 ? 31 << 10 : (32 + ((yl >> 10) & 31)) << exponent;
    return td && dq_magnitude > (threshold + (threshold >> 1)) >> 1;
}

/// TONE. A transition has just cleared the coefficients, and with them the tone.
inline void g726::tone_and_transition_detector2() {
    td = a[1] < -11776;
}

/// LIMO: limits the reconstructed signal to 14 bits.
inline int g726::output_limiting(int reconstructed) {
    return std::clamp(reconstructed, -8192, 8191);
}
