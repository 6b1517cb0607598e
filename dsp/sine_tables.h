#pragma once

#include <cstdint>

/// Sine tables of the generators, 16-bit samples.
namespace sine {

/// 32767 x sin(pi x i / 128), rounded to nearest: the positive half of a period of 256 steps.
constexpr int half_wave_steps = 128;
extern std::int16_t const half_wave[half_wave_steps];

/// Sine of an angle in 1/256 of a period (0..255), -32767..32767.
inline int full_wave(unsigned step) {
    int const value = half_wave[step % half_wave_steps];
    return step < half_wave_steps ? value : -value;
}

/// The DTMF frequencies (ITU-T Q.23) as whole numbers of periods at 8 kHz, so that they loop without a seam:
/// entry i = 8000 x sin(2 x pi x periods x i / length), truncated towards zero in double precision. Rounding
/// in that formula leaves 7999 and -7999 at the peaks of the 770 Hz table; the constants are what counts.
extern std::int16_t const dtmf_697[23];   ///< 2 periods, 695.65 Hz
extern std::int16_t const dtmf_770[52];   ///< 5 periods, 769.23 Hz
extern std::int16_t const dtmf_852[47];   ///< 5 periods, 851.06 Hz
extern std::int16_t const dtmf_941[17];   ///< 2 periods, 941.18 Hz
extern std::int16_t const dtmf_1209[53];  ///< 8 periods, 1207.55 Hz
extern std::int16_t const dtmf_1336[6];   ///< 1 periods, 1333.33 Hz
extern std::int16_t const dtmf_1477[65];  ///< 12 periods, 1476.92 Hz

}  // namespace sine
