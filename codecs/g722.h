#pragma once

#include <cstdint>

#include "codecs/g722_predictor.h"
#include "lib/extensions.h"

/// ITU-T G.722 at 64 kbit/s for a line that knows 8 kHz only: a sample in, a byte out, or the reverse. On the
/// way in the signal is interpolated to the coder's 16 kHz, on the way out decimated by averaging.
///
/// The signal enters the coder with 14 bits, and the band-splitting filters have a gain of 1 in each
/// direction, so that a round trip keeps the level. The modes at 56 and 48 kbit/s are not here.
///
/// With the extension `g722` the line's signal is the lower band itself, which has 8 kHz: it loses nothing to filters,
/// and has the level of equipment that puts 16 bits into the coder. The higher band is silent, and not heard.
///
/// One object serves one stream in both directions. It is plain data without heap memory, so it may be copied.
/// Constants and operations bear the Recommendation's names (clause 6.2).
class g722 {
public:
    /// The lower band's feedback, the same in encoder and decoder: scale factor adaptation (BLOCK 3L) and
    /// predictor (BLOCK 4L).
    class block4l {
    public:
        /// One step with a 4-bit code (the upper bits of the 6-bit code). Returns the estimate of the next
        /// sample.
        int process(int code);
        /// Estimate of the next sample, 17 bits.
        int estimate() const { return predictor.estimate(); }
        /// Scale factor of the quantizer, 32..16384.
        int scale() const { return det; }

    private:
        g722_predictor predictor;
        int nb = 0;    ///< logarithmic scale factor, base 2 in Q11: 0..18432
        int det = 32;  ///< the same, linear
    };
    /// The higher band's feedback, BLOCK 3H and BLOCK 4H.
    class block4h {
    public:
        /// One step with a 2-bit code. Returns the estimate of the next sample.
        int process(int code);
        /// As in block4l; scale 8..16384.
        int estimate() const { return predictor.estimate(); }
        int scale() const { return det; }

    private:
        g722_predictor predictor;
        int nb = 0;  ///< 0..22528
        int det = 8;
    };

    /// Two 16 kHz samples, or two bands' samples at 8 kHz.
    struct pair {
        int first;
        int second;
    };

    /// The last 24 samples of a quadrature mirror filter, which both filters weight with the same
    /// coefficients: every other sample belongs to one of two 12-tap filters, "even" and "odd".
    class delay_line {
    public:
        /// Takes the newest sample of each filter, 16 bits. Returns the filters' sums, Q12 for a gain of 1.
        pair process(int even, int odd);

    private:
        int samples[48] = {};  ///< newest first from samples[at] on, kept twice so as to be contiguous
        unsigned at = 0;
    };

    class encoder {
    public:
        /// One step: two consecutive 16 kHz samples (14 bits; up to 16 are coded without overflow), one byte:
        /// the higher band's code in the top 2 bits, the lower band's in the others.
        unsigned char process(short first, short second);
        /// One step with the lower band's sample, 15 bits, and nothing in the higher one, whose code stays that of
        /// silence.
        unsigned char process_low(int sample);

    private:
        delay_line line;
        block4l low;
        block4h high;
    };
    class decoder {
    public:
        /// One step: a lower-band code of 6 bits and a higher-band code of 2, no other bits set. Returns the
        /// mean of the two 16 kHz samples, rounded toward zero, 15 bits.
        int process(int low_code, int high_code);
        /// The same step with the two samples, 15 bits each, in order of time.
        pair process_pair(int low_code, int high_code);
        /// One step of the lower band alone. Returns its sample, 15 bits.
        int process_low(int low_code);

    private:
        delay_line line;
        block4l low;
        block4h high;
    };

    /// As the process's extensions say, or others.
    explicit g722(extension_set const& chosen = extensions) : low_alone(chosen.g722) {}

    /// n samples at 8 kHz, 16 bits, to n bytes. Nothing happens for n <= 0.
    void encode(int n, short const* in, unsigned char* out);
    /// n bytes to n samples at 8 kHz, 16 bits.
    void decode(int n, short* out, unsigned char const* in);

private:
    void encode_interpolated(int n, short const* in, unsigned char* out);
    void encode_low(int n, short const* in, unsigned char* out);
    void decode_averaged(int n, short* out, unsigned char const* in);
    void decode_low(int n, short* out, unsigned char const* in);

    bool low_alone;
    decoder receive;
    encoder send;
    short previous = 0;  ///< the encoder's last 8 kHz sample, 14 bits
};
