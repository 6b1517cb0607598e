#include "dsp/dtmf_synthesizer.h"

#include "lib/pcm.h"

namespace {

// The DTMF frequencies (ITU-T Q.23) as whole numbers of periods at 8 kHz, so that they loop without a seam:
// entry i = 8000 x sin(2 x pi x periods x i / length), truncated towards zero in double precision. Rounding in that
// formula leaves 7999 and -7999 at the peaks of the 770 Hz table; the constants are what counts.

constexpr std::int16_t dtmf_697[23] = {
    // 2 periods, 695.65 Hz
    0,    4156, 7103, 7981, 6535, 3187, -1089, -5048, -7538, -7832, -5846, -2158,
    2158, 5846, 7832, 7538, 5048, 1089, -3187, -6535, -7981, -7103, -4156,
};

constexpr std::int16_t dtmf_770[52] = {
    // 5 periods, 769.23 Hz
    0,     4544,  7480,  7767,  5304,  964,   -3717, -7083, -7941, -5988, -1914, 2836,  6583,
    7999,  6583,  2836,  -1914, -5988, -7941, -7083, -3717, 964,   5304,  7767,  7480,  4544,
    0,     -4544, -7480, -7767, -5304, -964,  3717,  7083,  7941,  5988,  1914,  -2836, -6583,
    -7999, -6583, -2836, 1914,  5988,  7941,  7083,  3717,  -964,  -5304, -7767, -7480, -4544,
};

constexpr std::int16_t dtmf_852[47] = {
    // 5 periods, 851.06 Hz
    0,     4957,  7782,  7256,  3608,  -1593, -6109, -7995, -6440, -2113, 3123,  7015,  7888,  5366,  534,   -4527,
    -7640, -7465, -4076, 1066,  5750,  7959,  6743,  2624,  -2624, -6743, -7959, -5750, -1066, 4076,  7465,  7640,
    4527,  -534,  -5366, -7888, -7015, -3123, 2113,  6440,  7995,  6109,  1593,  -3608, -7256, -7782, -4957,
};

constexpr std::int16_t dtmf_941[17] = {
    // 2 periods, 941.18 Hz
    0, 5389, 7965, 6384, 1469, -4211, -7694, -7161, -2889, 2889, 7161, 7694, 4211, -1469, -6384, -7965, -5389,
};

constexpr std::int16_t dtmf_1209[53] = {
    // 8 periods, 1207.55 Hz
    0,    6499, 7578,  2336,  -4854, -7996, -4469, 2785, 7717,  6212,  -473,  -6764, -7413, -1879,
    5222, 7968, 4068,  -3224, -7828, -5902, 946,   7005, 7222,  1415,  -5572, -7912, -3653, 3653,
    7912, 5572, -1415, -7222, -7005, -946,  5902,  7828, 3224,  -4068, -7968, -5222, 1879,  7413,
    6764, 473,  -6212, -7717, -2785, 4469,  7996,  4854, -2336, -7578, -6499,
};

constexpr std::int16_t dtmf_1336[6] = {
    // 1 period, 1333.33 Hz
    0, 6928, 6928, 0, -6928, -6928,
};

constexpr std::int16_t dtmf_1477[65] = {
    // 12 periods, 1476.92 Hz
    0,    7334,  5858,  -2655, -7978, -3717, 5009,  7719,  1155,  -6795, -6583, 1537, 7811,  4702,  -4055, -7941, -2287,
    6114, 7171,  -386,  -7480, -5588, 3016,  7997,  3371,  -5304, -7608, -772,  6991, 6356,  -1914, -7885, -4384, 4384,
    7885, 1914,  -6356, -6991, 772,   7608,  5304,  -3371, -7997, -3016, 5588,  7480, 386,   -7171, -6114, 2287,  7941,
    4055, -4702, -7811, -1537, 6583,  6795,  -1155, -7719, -5009, 3717,  7978,  2655, -5858, -7334,
};

/// One table of a frequency group, played in a loop.
struct loop {
    std::int16_t const* samples;
    int length;

    int take(std::int32_t& position) const {
        int const sample = samples[position];
        position = position + 1 == length ? 0 : position + 1;
        return sample;
    }
};

template <int length>
constexpr loop loop_of(std::int16_t const (&samples)[length]) {
    return {samples, length};
}

constexpr loop low_697 = loop_of(dtmf_697), low_770 = loop_of(dtmf_770), low_852 = loop_of(dtmf_852),
               low_941 = loop_of(dtmf_941);
constexpr loop high_1209 = loop_of(dtmf_1209), high_1336 = loop_of(dtmf_1336), high_1477 = loop_of(dtmf_1477);

// ITU-T Q.23, indexed by digit.
constexpr struct {
    loop low;
    loop high;
} keys[dtmf_synthesizer::digits] = {
    {low_941, high_1336},  // 0
    {low_697, high_1209},  // 1
    {low_697, high_1336},  // 2
    {low_697, high_1477},  // 3
    {low_770, high_1209},  // 4
    {low_770, high_1336},  // 5
    {low_770, high_1477},  // 6
    {low_852, high_1209},  // 7
    {low_852, high_1336},  // 8
    {low_852, high_1477},  // 9
    {low_941, high_1209},  // *
    {low_941, high_1477},  // #
};

std::int16_t divided_unsigned(int sum, unsigned int attenuation) {
    return static_cast<std::int16_t>(static_cast<std::uint32_t>(sum) / (attenuation + 10));
}

std::int16_t at_level(int sum, unsigned int attenuation) {
    // Two sines of 16140 have 0 dBm0 together (ITU-T G.711: one of 0 dBm0 is 3.14 dB below full scale): 16140 / 8000 x
    // 10^(-i / 20), Q14.
    constexpr int gains[20] = {33056, 29461, 26257, 23402, 20857, 18589, 16567, 14766, 13160, 11729,
                               10453, 9316,  8303,  7400,  6596,  5878,  5239,  4669,  4161,  3709};
    constexpr int divisors[] = {1, 10, 100, 1000};  // 20 dB each
    return static_cast<std::int16_t>(sum * gains[attenuation % 20] / (divisors[attenuation / 20 % 4] << 14));
}

}  // namespace

dtmf_synthesizer::wave const dtmf_synthesizer::harsh = {divided_unsigned, 0};
// -10 dBm0, the level that the sent telephone events name.
dtmf_synthesizer::wave const dtmf_synthesizer::clean = {at_level, 10};

dtmf_synthesizer::dtmf_synthesizer(extension_set const& chosen) : kind(chosen.dtmf ? clean : harsh) {}

void dtmf_synthesizer::clear() {
    low_position = 0;
    high_position = 0;
}

str dtmf_synthesizer::get_samples(int digit, unsigned int attenuation) {
    std::int16_t samples[pcm::block_samples] = {};
    if (digit >= 0 && digit < digits) {
        if (digit != current_digit) {
            clear();
            current_digit = digit;
        }
        auto const& [low, high] = keys[digit];
        for (std::int16_t& sample : samples)
            sample = kind.scaled(low.take(low_position) + high.take(high_position), attenuation);
    }
    return str(reinterpret_cast<unsigned char const*>(samples), sizeof samples);
}
