#pragma once

#include <array>
#include <cstdint>

/// The constants of ITU-T G.722 clause 6, named as there. Quantizer levels are in units of 2^-12 (decision
/// levels) and 2^-15 (output levels) of the scale factor; logarithmic scale factors are base 2 in Q11.
namespace g722_tables {

/// Coefficients of both quadrature mirror filters, Q13, the newest sample's first.
inline constexpr std::int16_t h[24] = {3,    -11, -11,  53,   12,  -156, 32,   362, -210, -805, 951, 3876,
                                       3876, 951, -805, -210, 362, 32,   -156, 12,  53,   -11,  -11, 3};

/// Decision levels of the lower band: interval i (0..29) begins at q6[i]. Two more, which count as the last, make 32.
inline constexpr std::int16_t q6[32] = {0,    35,   72,   110,  150,  190,  233,  276,  323,  370,  422,
                                        473,  530,  587,  650,  714,  786,  858,  940,  1023, 1121, 1219,
                                        1339, 1458, 1612, 1765, 1980, 2195, 2557, 2919, 2919, 2919};
/// Code of interval i for negative and for other differences.
inline constexpr std::uint8_t iln[32] = {63, 62, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18,
                                         17, 16, 15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  4,  4};
inline constexpr std::uint8_t ilp[32] = {61, 60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48, 47, 46,
                                         45, 44, 43, 42, 41, 40, 39, 38, 37, 36, 35, 34, 33, 32, 32, 32};
/// Output levels of the lower band by code, for the listener.
inline constexpr std::int16_t qm6[64] = {
    -136,  -136,  -136,  -136,  -24808, -21904, -19008, -16704, -14984, -13512, -12280, -11192, -10232,
    -9360, -8576, -7856, -7192, -6576,  -6000,  -5456,  -4944,  -4464,  -4008,  -3576,  -3168,  -2776,
    -2400, -2032, -1688, -1360, -1040,  -728,   24808,  21904,  19008,  16704,  14984,  13512,  12280,
    11192, 10232, 9360,  8576,  7856,   7192,   6576,   6000,   5456,   4944,   4464,   4008,   3576,
    3168,  2776,  2400,  2032,  1688,   1360,   1040,   728,    432,    136,    -432,   -136};
/// By the code's upper 4 bits: output level for the predictor, multiplier of the logarithmic scale factor WL(RL42), and
/// how far a difference of that sign moves the zeros' coefficients.
struct alignas(8) low_level {
    std::int16_t qm4, wl, gain;
};
inline constexpr low_level low_levels[16] = {
    {0, -60, 0},        {-20456, 3042, -128}, {-12896, 1198, -128}, {-8968, 538, -128},
    {-6288, 334, -128}, {-4240, 172, -128},   {-2584, 58, -128},    {-1200, -30, -128},
    {20456, 3042, 128}, {12896, 1198, 128},   {8968, 538, 128},     {6288, 334, 128},
    {4240, 172, 128},   {2584, 58, 128},      {1200, -30, 128},     {0, -60, 0}};

/// The higher band: its only decision level apart from 0, then by code the output levels and the multipliers
/// of the logarithmic scale factor, WH(RH2).
inline constexpr int q2 = 564;
inline constexpr std::int16_t qm2[4] = {-7408, -1616, 7408, 1616};
inline constexpr std::int16_t wh[4] = {798, -214, 798, -214};

/// 2^(i / 32), Q11.
inline constexpr int ilb[32] = {2048, 2093, 2139, 2186, 2233, 2282, 2332, 2383, 2435, 2489, 2543,
                                2599, 2656, 2714, 2774, 2834, 2896, 2960, 3025, 3091, 3158, 3228,
                                3298, 3371, 3444, 3520, 3597, 3676, 3756, 3838, 3922, 4008};

/// SCALEH: linear scale factor of a logarithmic one / 64: 2^(i / 32), truncated to a multiple of 4.
inline constexpr auto scale = [] {
    std::array<std::int16_t, 22528 / 64 + 1> table{};
    for (unsigned i = 0; i < table.size(); i++)
        table[i] = static_cast<std::int16_t>((2 * ilb[i % 32] >> (11 - i / 32)) * 4);
    return table;
}();
/// SCALEL: the lower band's scale factors are those of the higher one from here on.
inline constexpr int low_scale = 2 * 32;

}  // namespace g722_tables
