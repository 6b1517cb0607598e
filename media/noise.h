#pragma once

#include <cstdint>

#include "lib/str.h"

/// How steady noise sounds: its level and its spectrum as an all-pole model. Integers alone, the same on every machine.
struct noise_shape {
    static constexpr int order = 10;

    int level = 0;                        ///< root mean square of the samples
    std::int16_t reflection[order] = {};  ///< Q15; the first one is below 0 where low frequencies prevail

    /// What a comfort noise payload says (RFC 3389 section 3): the level in -dBov, then reflection coefficients. More
    /// of them than `order` are ignored; an empty payload is silence.
    static noise_shape of_payload(str const& payload);
    /// Noise of this level whose autocorrelation at lag 0 to `order` is proportional to these; r[0] is the greatest.
    static noise_shape of_autocorrelation(std::int64_t const* r, int level);
};

/// Noise of a shape: uniform random numbers through a lattice filter.
class noise_generator {
public:
    void set(noise_shape const& wanted);
    int next();

private:
    noise_shape shape;
    std::int32_t amplitude = 0;                   ///< of the excitation, 1/64
    std::int32_t state[noise_shape::order] = {};  ///< backward residuals, 1/64
    std::uint32_t random = 1;
};

/// The largest integer whose square is not above x.
std::uint32_t square_root(std::uint64_t x);
