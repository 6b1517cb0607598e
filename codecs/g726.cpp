#include "codecs/g726.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "codecs/g726_tables.h"

namespace {

using namespace g726_arithmetic;

/// QUAN: the codeword for a normalized logarithm. Counts the thresholds above it: with all of them known, that takes
/// two instructions for each, less than a search would.
template <int width>
unsigned quantize(int dln, int sign) {
    constexpr unsigned codes = 1u << (width - 1);
    constexpr unsigned mask = 2 * codes - 1;
    unsigned code = codes - 1;
#pragma GCC unroll 15
    for (unsigned i = 0; i < codes - 1; i++)
        code -= dln < g726_tables::quantizers[width - 2].thresholds[i];
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
    predictor.reset();
    td = false;
}

void g726::set_rate(g726::rate bits) {
    width = static_cast<std::uint8_t>(bits);
    leak = bits == rate::bits5 ? 9 : 8;
    meanings = &g726_tables::levels[1u << width];
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
        codeword = adaptive_quantizer(difference_signal_computation(static_cast<int>(value), predictor.estimate()), y);
    g726_tables::level const& meaning = meanings[codeword];
    auto const difference = inverse_adaptive_quantizer(meaning, y);
    bool const tr = tone_and_transition_detector1(difference.magnitude);
    int const reconstructed = predictor.process(difference, tr, leak);
    td = predictor.has_tone();
    adaptation_speed_control2(meaning.fi, y, tr);
    quantizer_scale_factor_adaptation2(meaning.wi, y);
    return encoding ? static_cast<int>(codeword) : output_limiting(reconstructed);
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
inline g726_predictor::quantized_difference g726::inverse_adaptive_quantizer(g726_tables::level const& meaning, int y) {
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

/// LIMO: limits the reconstructed signal to 14 bits.
inline int g726::output_limiting(int reconstructed) {
    return std::clamp(reconstructed, -8192, 8191);
}
