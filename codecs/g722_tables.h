#pragma once

#include <array>
#include <cstdint>

/// The constants of ITU-T G.722 clause 6, named as there. Quantizer levels are in units of 2^-12 (decision
/// levels) and 2^-15 (output levels) of the scale factor; logarithmic scale factors are base 2 in Q11.
namespace g722_tables {

/// Coefficients of both quadrature mirror filters, Q13, the newest sample's first.
inline constexpr std::int16_t h[24] = {3,    -11, -11,  53,   12,  -156, 32,   362, -210, -805, 951, 3876,
                                       3876, 951, -805, -210, 362, 32,   -156, 12,  53,   -11,  -11, 3};

/// The intervals of the lower band: where one begins (Q6), and its code for differences that are not negative (ILP) and
/// for those that are (ILN). Two more than the 30, which count as the last, make 32.
struct low_interval {
    std::int16_t q6;
    std::uint8_t il[2];
};
inline constexpr low_interval low_intervals[32] = {
    {0, {61, 63}},   {35, {60, 62}},   {72, {59, 31}},   {110, {58, 30}},  {150, {57, 29}},  {190, {56, 28}},
    {233, {55, 27}}, {276, {54, 26}},  {323, {53, 25}},  {370, {52, 24}},  {422, {51, 23}},  {473, {50, 22}},
    {530, {49, 21}}, {587, {48, 20}},  {650, {47, 19}},  {714, {46, 18}},  {786, {45, 17}},  {858, {44, 16}},
    {940, {43, 15}}, {1023, {42, 14}}, {1121, {41, 13}}, {1219, {40, 12}}, {1339, {39, 11}}, {1458, {38, 10}},
    {1612, {37, 9}}, {1765, {36, 8}},  {1980, {35, 7}},  {2195, {34, 6}},  {2557, {33, 5}},  {2919, {32, 4}},
    {2919, {32, 4}}, {2919, {32, 4}}};
/// Output levels of the lower band by code, for the listener.
inline constexpr std::int16_t qm6[64] = {
    -136,  -136,  -136,  -136,  -24808, -21904, -19008, -16704, -14984, -13512, -12280, -11192, -10232,
    -9360, -8576, -7856, -7192, -6576,  -6000,  -5456,  -4944,  -4464,  -4008,  -3576,  -3168,  -2776,
    -2400, -2032, -1688, -1360, -1040,  -728,   24808,  21904,  19008,  16704,  14984,  13512,  12280,
    11192, 10232, 9360,  8576,  7856,   7192,   6576,   6000,   5456,   4944,   4464,   4008,   3576,
    3168,  2776,  2400,  2032,  1688,   1360,   1040,   728,    432,    136,    -432,   -136};
/// What a code means, of the lower band's codes their upper 4 bits. The last two are as g722_leak() takes them.
struct alignas(16) level {
    constexpr level(std::int16_t output_level, int multiplier, int sign)
        : qm(output_level), added(multiplier * 128), gain(sign * (128 << 8)) {}
    std::int16_t qm;  ///< output level for the predictor
    int added;        ///< multiplier of the logarithmic scale factor, WL(RL42) or WH(RH2), times 2^7
    int gain;         ///< how far a difference of that sign moves the zeros' coefficients, times 2^8
};
inline constexpr level low_levels[16] = {{0, -60, 0},      {-20456, 3042, -1}, {-12896, 1198, -1}, {-8968, 538, -1},
                                         {-6288, 334, -1}, {-4240, 172, -1},   {-2584, 58, -1},    {-1200, -30, -1},
                                         {20456, 3042, 1}, {12896, 1198, 1},   {8968, 538, 1},     {6288, 334, 1},
                                         {4240, 172, 1},   {2584, 58, 1},      {1200, -30, 1},     {0, -60, 0}};
/// The higher band: its only decision level apart from 0, and its levels by code.
inline constexpr int q2 = 564;
inline constexpr level high_levels[4] = {{-7408, 798, -1}, {-1616, -214, -1}, {7408, 798, 1}, {1616, -214, 1}};

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
inline constexpr std::int16_t const* low_scale = &scale[2 * 32];

}  // namespace g722_tables
