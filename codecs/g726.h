#pragma once

#include <array>
#include <cstdint>

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
    /// The 11-bit floating point format of the predictor's signal histories in one word, laid out for multiply():
    ///     bits 0..4     15 - exponent, exponent 0..15
    ///     bits 5..10    mantissa, 32..63
    ///     bits 11..31   sign: all 1 when negative
    using float11 = std::int32_t;
    /// Quantized difference signal in sign and magnitude: a magnitude of 0 has a sign too.
    struct quantized_difference {
        int sign;       ///< 0, or -1 when negative
        int magnitude;  ///< 15 bits
    };
    struct level;

    static std::array<level, 64> const levels;

    static float11 to_float(int sign, int magnitude);
    static int multiply(int coefficient, float11 signal);

    int adaptation_speed_control1() const;
    void adaptation_speed_control2(int fi, int y, bool tr);
    int quantizer_scale_factor_adaptation1(int al) const;
    void quantizer_scale_factor_adaptation2(int wi, int y);
    int adaptative_predictor_and_reconstructed_signal_calculator(quantized_difference difference, bool tr);
    static int difference_signal_computation(int sl, int se);
    unsigned adaptive_quantizer(int d, int y) const;
    static quantized_difference inverse_adaptive_quantizer(level const& meaning, int y);
    bool tone_and_transition_detector1(int dq_magnitude) const;
    void tone_and_transition_detector2();
    static int output_limiting(int reconstructed);

    void adapt_poles(int partial);
    int adapt_zeros(quantized_difference difference, bool tr);
    void clear_predictor_coefficients();

    int yu;                 ///< fast scale factor, Q9: 544..5120
    int yl;                 ///< slow scale factor, Q15
    int dms, dml;           ///< short-term (Q9) and long-term (Q11) mean of F(I)
    int ap;                 ///< speed control before limiting, Q8: 0..512
    int a[2];               ///< pole coefficients, Q14
    int b[6];               ///< zero coefficients, Q14
    float11 sr[2];          ///< reconstructed signal, newest first
    float11 dq[6];          ///< quantized difference signal, newest first
    int se, sez;            ///< estimate of the next sample, and what the zeros add to it: 15-bit two's complement
    int pk[2];              ///< sign (0 or -1) of the partially reconstructed signal, newest first
    bool td;                ///< tone detected
    std::uint8_t width;     ///< bits per codeword
    std::uint8_t leak;      ///< of the zeros' coefficients, as a shift
    level const* meanings;  ///< of the codewords of that width
};
