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
    /// Samples that are handled in one piece: a block of the line's. Longer runs are cut.
    static constexpr int piece = 80;

    /// The lower band, the same feedback in encoder and decoder: scale factor adaptation (BLOCK 3L) and predictor
    /// (BLOCK 4L).
    class lower_band {
    public:
        /// n samples of 15 bits to bytes: a 6-bit code each, and `others` above it.
        void encode(int n, short const* in, unsigned char* out, unsigned others);
        /// The lower 6 bits of n bytes to samples.
        void decode(int n, unsigned char const* in, short* out);

    private:
        void adapt(int code);

        g722_predictor predictor;
        int nb = 0;    ///< logarithmic scale factor, base 2 in Q11: 0..18432
        int det = 32;  ///< the same, linear: 32..16384
    };
    /// The higher band, BLOCK 3H and BLOCK 4H. Its codes are the upper 2 bits of a byte.
    class higher_band {
    public:
        /// The bytes have the lower band's codes, which stay.
        void encode(int n, short const* in, unsigned char* out);
        /// Calls take(i, sample) for n bytes.
        template <typename function>
        void decode(int n, unsigned char const* in, function take);

    private:
        void adapt(int code);

        g722_predictor predictor;
        int nb = 0;   ///< 0..22528
        int det = 8;  ///< 8..16384
    };

    /// The last samples of a quadrature mirror filter, which both filters weight with the same coefficients: every
    /// other sample belongs to one of two 12-tap filters, "even" and "odd".
    class delay_line {
    public:
        static constexpr int before = 11;  ///< samples that a sum needs apart from the newest
        static constexpr int at_once = 4;  ///< sums that are computed together
        /// A piece of both filters' samples, 16 bits, from [before] on, oldest first.
        struct samples {
            short even[before + piece + at_once - 1], odd[before + piece + at_once - 1];
        };
        /// Calls take(i, even, odd) with both filters' sums, Q12 for a gain of 1, for each of n samples.
        template <typename function>
        void process(int n, samples& x, function take);

    private:
        short even[before] = {}, odd[before] = {};
    };

    class encoder {
    public:
        /// 2n 16 kHz samples (14 bits; up to 16 are coded without overflow) to n bytes: the higher band's code in the
        /// top 2 bits, the lower band's in the others.
        void process(int n, short const* in, unsigned char* out);
        /// n samples at 8 kHz, 16 bits, of which the upper 14 are used, to n bytes.
        void process_interpolated(int n, short const* in, unsigned char* out);
        /// n samples of the lower band, 16 bits, of which the upper 15 are used, and nothing in the higher one, whose
        /// code stays that of silence.
        void process_low(int n, short const* in, unsigned char* out);

    private:
        template <typename function>
        void process(int n, delay_line::samples& x, unsigned char* out, function limit);

        delay_line line;
        lower_band low;
        higher_band high;
        short previous = 0;  ///< last 8 kHz sample, 14 bits
    };
    class decoder {
    public:
        /// n bytes to 2n 16 kHz samples, 15 bits.
        void process(int n, unsigned char const* in, short* out);
        /// n bytes to n samples at 8 kHz: the means of two, rounded toward zero, 16 bits.
        void process_averaged(int n, unsigned char const* in, short* out);
        /// n steps of the lower band alone, samples of 16 bits.
        void process_low(int n, unsigned char const* in, short* out);

    private:
        template <typename function>
        void process(int n, unsigned char const* in, function take);

        delay_line line;
        lower_band low;
        higher_band high;
    };

    /// As the process's extensions say, or others.
    explicit g722(extension_set const& chosen = extensions) : low_alone(chosen.g722) {}

    /// n samples at 8 kHz, 16 bits, to n bytes. Nothing happens for n <= 0.
    void encode(int n, short const* in, unsigned char* out);
    /// n bytes to n samples at 8 kHz, 16 bits.
    void decode(int n, short* out, unsigned char const* in);

private:
    bool low_alone;
    decoder receive;
    encoder send;
};
