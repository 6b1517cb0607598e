#pragma once

#include <array>
#include <cstdint>

/// The constants of ITU-T G.726 at 2, 3, 4 and 5 bits.
namespace g726_tables {

/// What a codeword means.
struct level {
    std::int16_t sign;  ///< 0, or -1 when negative
    std::int16_t dqln;  ///< quantizer output, base-2 logarithm in Q7
    std::int16_t wi;    ///< scale factor multiplier W(I), Q4
    std::int16_t fi;    ///< rate-of-change weight F(I), Q4
};

/// The adaptive quantizer at one rate, by magnitude code: the codeword without its sign.
struct quantizer {
    std::int16_t thresholds[15];  ///< code i begins at thresholds[i - 1]; base-2 logarithms in Q7
    struct {
        std::int16_t dqln, wi, fi;  ///< as in level, but F(I) in Q0
    } levels[16];
};

/// The quantizer, W(I) and F(I) tables.
inline constexpr quantizer quantizers[4] = {
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

/// By codeword; those of n bits from 2^n on.
inline constexpr std::array<level, 64> levels = [] {
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

}  // namespace g726_tables
