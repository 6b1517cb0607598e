#pragma once

#include <cstdint>

#include "lib/extensions.h"
#include "lib/str.h"

/// Generator of DTMF digits: adds one looped sine table of the low and one of the high frequency group.
/// 16-bit samples at 8 kHz in blocks of 10 ms.
///
/// A plain value: owns no memory; it knows no durations, a digit sounds for as long as its owner asks for it.
class dtmf_synthesizer {
public:
    /// Digits 0..9 stand for themselves, then come "*" and "#". There are no A..D.
    static constexpr int digit_star = 10;
    static constexpr int digit_hash = 11;
    static constexpr int digits = 12;

    /// Level and wave form are those of the process's extensions, or of others.
    explicit dtmf_synthesizer(extension_set const& chosen = extensions);

    /// Back to the start of both tables; the digit is kept.
    void clear();

    /// The next 10 ms of a digit: 80 samples, host byte order. The same digit goes on where it stopped,
    /// another one starts from the beginning; a digit outside 0..11 gives silence and changes nothing.
    ///
    /// `attenuation` is 0..63, the volume of a telephone event (RFC 4733 section 2.3.3).
    ///
    /// Without the extension `dtmf` each sample is divided by attenuation + 10, so a peak of 16000 / (attenuation +
    /// 10). The division is an unsigned one of 32 bits of which the low 16 are kept: negative half-waves become (2^32 -
    /// |sum|) / (attenuation + 10) modulo 2^16. 2^32 - 10 is not allowed.
    ///
    /// With it both sines together have -attenuation dBm0, as the RFC says: each 3 dB less.
    str get_samples(int digit, unsigned int attenuation);

    /// The attenuation of digits that are sent in band.
    unsigned int in_band_attenuation() const { return kind.in_band_attenuation; }

private:
    struct wave {
        std::int16_t (*scaled)(int sum, unsigned int attenuation);  ///< of two sines of 8000 each
        unsigned int in_band_attenuation;
    };
    static wave const harsh;
    static wave const clean;

    wave const& kind;
    std::int32_t low_position = 0;
    std::int32_t high_position = 0;
    std::int32_t current_digit = 0;
};
