#include "codecs/g726.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <iterator>

/// What a codeword means.
struct g726::level {
    std::int16_t sign;  ///< 0, or -1 when negative
    std::int16_t dqln;  ///< quantizer output, base-2 logarithm in Q7
    std::int16_t wi;    ///< scale factor multiplier W(I), Q4
    std::int16_t fi;    ///< rate-of-change weight F(I), Q4
};

namespace {

/// The adaptive quantizer at one rate, by magnitude code: the codeword without its sign.
struct quantizer {
    std::int16_t thresholds[15];  ///< code i begins at thresholds[i - 1]; base-2 logarithms in Q7
    struct {
        std::int16_t dqln, wi, fi;  ///< as in g726::level, but F(I) in Q0
    } levels[16];
};

/// The quantizer, W(I) and F(I) tables of ITU-T G.726 at 2, 3, 4 and 5 bits.
constexpr quantizer quantizers[4] = {
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

}  // namespace

/// By codeword; those of n bits from 2^n on.
constexpr std::array<g726::level, 64> g726::levels = [] {
    std::array<level, 64> table{};
    for (unsigned bits = 2; bits <= 5; bits++)
        for (unsigned codeword = 0; codeword < 1u << bits; codeword++) {
            bool const negative = codeword >> (bits - 1);
            auto const& own = quantizers[bits - 2].levels[negative ? (1u << bits) - 1 - codeword : codeword];
            table[(1u << bits) + codeword] = {static_cast<std::int16_t>(negative ? -1 : 0), own.dqln, own.wi,
                                              static_cast<std::int16_t>(own.fi * 16)};
        }
    return table;
}();

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

/// A number as mantissa * 2^-zeros, mantissa 32..63, the point behind the 26th bit. `instead` stands for 0.
struct float_parts {
    int zeros;
    unsigned mantissa;
};

float_parts split(unsigned number, unsigned instead) {
    unsigned const scaled = number == 0 ? instead : number;
    int const zeros = std::countl_zero(scaled);
    return {zeros, scaled << zeros >> 26};
}

/// QUAN: the codeword for a normalized logarithm. Counts the thresholds above it: with all of them known, that takes
/// two instructions for each, less than a search would.
template <int width>
unsigned quantize(int dln, int sign) {
    constexpr unsigned codes = 1u << (width - 1);
    constexpr unsigned mask = 2 * codes - 1;
    unsigned code = codes - 1;
#pragma GCC unroll 15
    for (unsigned i = 0; i < codes - 1; i++)
        code -= dln < quantizers[width - 2].thresholds[i];
    unsigned const codeword = (code ^ static_cast<unsigned>(sign)) & mask;
    return codeword == 0 && width > 2 ? mask : codeword;
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
    se = sez = 0;
    td = false;
}

void g726::set_rate(g726::rate bits) {
    width = static_cast<std::uint8_t>(bits);
    leak = bits == rate::bits5 ? 9 : 8;
    meanings = &levels[1u << width];
}

// Flattened: each direction becomes one straight piece of code with `encoding` known. Codewords of a type that may
// alias anything would keep the state out of registers without __restrict.
[[gnu::flatten]] void g726::encode(int n, std::int16_t const* in, unsigned char* __restrict out) {
    for (int i = 0; i < n; i++)
        out[i] = static_cast<unsigned char>(encode_decode(static_cast<unsigned>(in[i] >> 2), true));
}

[[gnu::flatten]] void g726::decode(int n, std::int16_t* out, unsigned char const* in) {
    unsigned const mask = (1u << width) - 1;
    for (int i = 0; i < n; i++)
        out[i] = static_cast<std::int16_t>(encode_decode(in[i] & mask, false) * 4);
}

unsigned g726::encode(unsigned sample) {
    std::int16_t const in = static_cast<std::int16_t>(sample);
    unsigned char codeword = 0;
    encode(1, &in, &codeword);
    return codeword;
}

int g726::decode(unsigned codeword) {
    unsigned char const in = static_cast<unsigned char>(codeword);
    std::int16_t sample = 0;
    decode(1, &sample, &in);
    return sample;
}

int g726::encode_decode(unsigned value, bool encoding) {
    int const y = quantizer_scale_factor_adaptation1(adaptation_speed_control1());
    unsigned codeword = value;
    if (encoding)
        codeword = adaptive_quantizer(difference_signal_computation(static_cast<int>(value), se), y);
    level const& meaning = meanings[codeword];
    quantized_difference const difference = inverse_adaptive_quantizer(meaning, y);
    bool const tr = tone_and_transition_detector1(difference.magnitude);
    int const reconstructed = adaptative_predictor_and_reconstructed_signal_calculator(difference, tr);
    tone_and_transition_detector2();
    adaptation_speed_control2(meaning.fi, y, tr);
    quantizer_scale_factor_adaptation2(meaning.wi, y);
    return encoding ? static_cast<int>(codeword) : output_limiting(reconstructed);
}

/// FLOATA, FLOATB: of a magnitude of 15 bits, which moves to the top of the word.
inline g726::float11 g726::to_float(int sign, int magnitude) {
    float_parts const parts = split(static_cast<unsigned>(magnitude) << 17, 1 << 16);
    return (sign << 11) | static_cast<int>(parts.mantissa << 5) | parts.zeros;
}

/// FMULT: product of a Q14 coefficient and a signal, Q1, 16 bits. The coefficient's 13 bits without sign move to the
/// top of the word, where a 14th falls off; then the zeros of both are the shift that the product needs.
inline int g726::multiply(int coefficient, float11 signal) {
    unsigned const magnitude = static_cast<unsigned>(with_sign(coefficient >> 2, sign_of(coefficient)));
    float_parts const factor = split(magnitude << 19, 1 << 18);
    // The mantissas' product is rounded to units of 16; the signal's brings 5 bits below the point with it.
    unsigned const mantissa = static_cast<unsigned>(signal) & 63u << 5;
    unsigned const product = (mantissa * factor.mantissa + (48 << 5)) & ~511u;
    int const result = static_cast<int>(product >> ((signal + factor.zeros) & 31) & 32767);
    return with_sign(result, sign_of(signal) ^ sign_of(coefficient));
}

/// LIMA. Returns AL, Q6: 0..64.
inline int g726::adaptation_speed_control1() const {
    return std::min(ap >> 2, 64);
}

/// FILTA, FILTB, SUBTC, FILTC, TRIGA. F(I) is a multiple of both filters' divisors, so it stands outside the divisions.
inline void g726::adaptation_speed_control2(int fi, int y, bool tr) {
    dms += fi + (-dms >> 5);
    dml += fi + (-dml >> 7);
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
    yu = std::clamp(y + wi + (-y >> 5), 544, 5120);
    yl += yu + (-yl >> 6);
}

/// ADDB, ADDC, FLOATB, UPA1, LIMC, UPA2, LIMD, TRIGB, the delays, and the estimates of the next sample (ACCUM). Returns
/// the reconstructed signal.
inline int g726::adaptative_predictor_and_reconstructed_signal_calculator(quantized_difference difference, bool tr) {
    int const dqi = with_sign(difference.magnitude, difference.sign);
    int const reconstructed = wrap16(dqi + se);
    int const partial = wrap16(dqi + sez);
    if (tr)
        clear_predictor_coefficients();
    else
        adapt_poles(partial);
    pk[1] = pk[0];
    pk[0] = sign_of(partial);
    sr[1] = sr[0];
    sr[0] = to_float(sign_of(reconstructed), with_sign(reconstructed, sign_of(reconstructed)));
    int const zeros = adapt_zeros(difference, tr);
    int const all = zeros + multiply(a[0], sr[0]) + multiply(a[1], sr[1]);
    se = wrap16(all) >> 1;
    sez = wrap16(zeros) >> 1;
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

/// UPB, FLOATA, the delays and FMULT: what the zeros add to the next estimate. Each coefficient and signal is in a
/// register once for all of them. After a transition the coefficients are zero and stay so.
inline int g726::adapt_zeros(quantized_difference difference, bool tr) {
    int const adapts =
        static_cast<int>(difference.magnitude != 0) & static_cast<int>(!tr);  // no branches: six would follow
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
inline void g726::clear_predictor_coefficients() {
    std::fill(std::begin(a), std::end(a), 0);
    std::fill(std::begin(b), std::end(b), 0);
}

/// SUBTA. Returns D, 16 bits.
inline int g726::difference_signal_computation(int sl, int se) {
    return sl - se;
}

/// LOG, SUBTB, QUAN: quantizes the base-2 logarithm of d, normalized by the scale factor y.
inline unsigned g726::adaptive_quantizer(int d, int y) const {
    int const sign = sign_of(d);
    unsigned const unlimited = static_cast<unsigned>(with_sign(d, sign));
    unsigned const magnitude = unlimited + (unlimited == 0 ? 1 : 0);
    int const zeros = std::countl_zero(magnitude);
    // The mantissa's leading 1 stands at 2^7 and counts as one exponent.
    int const dln = static_cast<int>(magnitude << zeros >> 24) + ((30 - zeros) << 7) - (y >> 2);
    switch (width) {
        [[likely]] case 4 : return quantize<4>(dln, sign);
        case 2: return quantize<2>(dln, sign);
        case 3: return quantize<3>(dln, sign);
        default: return quantize<5>(dln, sign);
    }
}

/// RECONST, ADDA, ANTILOG.
inline g726::quantized_difference g726::inverse_adaptive_quantizer(level const& meaning, int y) {
    int const dql = meaning.dqln + (y >> 2);
    if (dql < 0)
        return {meaning.sign, 0};
    return {meaning.sign, ((128 + (dql & 127)) << 7) >> (14 - (dql >> 7))};
}

/// TRANS. Whether the difference signal jumps while a tone is detected.
inline bool g726::tone_and_transition_detector1(int dq_magnitude) const {
    if (!td) [[likely]]
        return false;
    int const exponent = yl >> 15;
    int const threshold = exponent > 9 ? 31 << 10 : (32 + ((yl >> 10) & 31)) << exponent;
    return dq_magnitude > (threshold + (threshold >> 1)) >> 1;
}

/// TONE. A transition has just cleared the coefficients, and with them the tone.
inline void g726::tone_and_transition_detector2() {
    td = a[1] < -11776;
}

/// LIMO: limits the reconstructed signal to 14 bits.
inline int g726::output_limiting(int reconstructed) {
    return std::clamp(reconstructed, -8192, 8191);
}
