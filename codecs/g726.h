#pragma once

#include <cstdint>

#include "codecs/g726_predictor.h"

namespace g726_tables {
struct level;
}

/// ITU-T G.726 ADPCM at 16, 24, 32 and 40 kbit/s with the linear-PCM interface of its Annex A: one sample in,
/// one codeword out, or the reverse.
///
/// One object is one direction of one stream: an encoder and a decoder are two objects. It is plain data
/// without heap memory, so it may be copied. It neither packs codewords into bytes nor knows A-law and
/// µ-law: no tandem adjustment takes place.
///
/// The block operations bear the names of the Recommendation's clauses, the state and the signals between
/// blocks the names of its variables, with its fixed-point formats.
class g726 {
public:
    /// Bits per codeword, at 8000 codewords/s.
    enum class rate : unsigned char { bits2 = 2, bits3 = 3, bits4 = 4, bits5 = 5 };

    /// Initial state, 4 bits per codeword.
    g726();
    /// The Recommendation's initial state. The codeword width stays.
    void reset();
    /// Sets the codeword width; the adaptive state stays, so that a stream may change its rate at any sample.
    void set_rate(g726::rate bits);

    /// Codes one sample: the low 16 bits are signed linear PCM, of which the two lowest bits are dropped.
    /// Returns a codeword of `rate` bits.
    unsigned encode(unsigned sample);
    /// Decodes one codeword; bits above the width are ignored. Returns signed linear PCM, a multiple of 4 in
    /// -32768..32764.
    int decode(unsigned codeword);
    /// The same for n samples and n codewords, one a byte.
    void encode(int n, std::int16_t const* in, unsigned char* out);
    void decode(int n, std::int16_t* out, unsigned char const* in);
    /// One step of the coder. Encoding: `value` is a 14-bit sample, sign-extended (-8192..8191 modulo 2^32);
    /// returns its codeword. Decoding: `value` is a codeword without excess bits; returns a 14-bit sample.
    int encode_decode(unsigned value, bool encoding);

private:
    int adaptation_speed_control1() const;
    void adaptation_speed_control2(int fi, int y, bool tr);
    int quantizer_scale_factor_adaptation1(int al) const;
    void quantizer_scale_factor_adaptation2(int wi, int y);
    static int difference_signal_computation(int sl, int se);
    unsigned adaptive_quantizer(int d, int y) const;
    static g726_predictor::quantized_difference inverse_adaptive_quantizer(g726_tables::level const& meaning, int y);
    bool tone_and_transition_detector1(int dq_magnitude) const;
    static int output_limiting(int reconstructed);

    int yu;        ///< fast scale factor, Q9: 544..5120
    int yl;        ///< slow scale factor, Q15
    int dms, dml;  ///< short-term (Q9) and long-term (Q11) mean of F(I)
    int ap;        ///< speed control before limiting, Q8: 0..512
    g726_predictor predictor;
    bool td;                             ///< tone detected
    std::uint8_t width;                  ///< bits per codeword
    std::uint8_t leak;                   ///< of the zeros' coefficients, as a shift
    g726_tables::level const* meanings;  ///< of the codewords of that width
};
