#include "codecs/g722.h"

#include <gtest/gtest.h>
#include <spandsp.h>

#include "codecs/g722_tables.h"
#include "tests/codecs/libav_g722.h"

// The oracles are libspandsp and libavcodec at 16 kHz. They take and give 16 bits where our coder has 15: the same
// signal is twice as large there. The 14 bits that our lines deliver keep clear of the limiting of the encoder's
// band signals, which both lack; libspandsp lacks that of the output too. Codes that no encoder sends reach the
// limits of the zeros' partial sums, which both lack as well: those cases have the model below.

namespace {

int saturate(int value, int bits = 16) {
    return std::clamp(value, -(1 << (bits - 1)), (1 << (bits - 1)) - 1);
}

/// ITU-T G.722 clauses 6.2.1 to 6.2.4 to the letter: one 16-bit operation after the other, each addition limited,
/// every delay line shifted. Tables are the coder's own, which the oracles verify.
class model_band {
public:
    explicit model_band(bool is_low) : low(is_low), det(is_low ? 32 : 8) {}
    int s = 0;
    bool low;
    int det;

    void update(int code) {
        int const levels = low ? g722_tables::qm4[code] : g722_tables::qm2[code];
        dlt[0] = multiply(det, levels);
        nb = saturate(multiply(nb, 32512) + (low ? g722_tables::wl[code] : g722_tables::wh[code]));
        nb = std::clamp(nb, 0, low ? 18432 : 22528);
        int const shift = (low ? 8 : 10) - (nb >> 11), mantissa = g722_tables::ilb[nb >> 6 & 31];
        det = (shift < 0 ? mantissa << -shift : mantissa >> shift) << 2;
        rlt[0] = saturate(s + dlt[0]);
        plt[0] = saturate(sz + dlt[0]);
        poles();
        for (int i = 6; i > 0; i--) {
            int const gain = dlt[0] == 0 ? 0 : (dlt[0] < 0) == (dlt[i] < 0) ? 128 : -128;
            bl[i] = saturate(gain + multiply(bl[i], 32640));
        }
        std::copy_backward(dlt, dlt + 6, dlt + 7);
        std::copy_backward(rlt, rlt + 2, rlt + 3);
        std::copy_backward(plt, plt + 2, plt + 3);
        int const sp =
            saturate(multiply(al[1], saturate(2 * rlt[1])) + multiply(al[2], saturate(2 * rlt[2])));
        sz = 0;
        for (int i = 6; i > 0; i--)
            sz = saturate(sz + multiply(bl[i], saturate(2 * dlt[i])));
        s = saturate(sp + sz);
    }

private:
    static int multiply(int a, int b) { return a * b >> 15; }
    void poles() {
        bool const same1 = (plt[0] < 0) == (plt[1] < 0), same2 = (plt[0] < 0) == (plt[2] < 0);
        int const wd1 = saturate(2 * saturate(2 * al[1]));
        int const wd2 = (same1 ? saturate(-wd1) : wd1) >> 7;
        int const wd3 = saturate(wd2 + (same2 ? 128 : -128));
        al[2] = std::clamp(saturate(wd3 + multiply(al[2], 32512)), -12288, 12288);
        int const apl1 = saturate((same1 ? 192 : -192) + multiply(al[1], 32640));
        al[1] = std::clamp(apl1, -saturate(15360 - al[2]), saturate(15360 - al[2]));
    }

    int nb = 0, sz = 0;
    int dlt[7] = {}, rlt[3] = {}, plt[3] = {}, al[3] = {}, bl[7] = {};
};

/// The rest of the decoder and of the encoder, likewise.
struct model_coder {
    model_band low{true}, high{false};
    int x[24] = {};  ///< newest first

    std::pair<int, int> filter(int even, int odd) {
        std::copy_backward(x, x + 22, x + 24);
        x[0] = even, x[1] = odd;
        std::pair<int, int> sums;
        for (int i = 0; i < 24; i++)
            (i % 2 == 0 ? sums.first : sums.second) += g722_tables::h[i] * x[i];
        return sums;
    }
    std::pair<int, int> decode(int byte) {
        int const rl = saturate(low.s + (low.det * g722_tables::qm6[byte & 63] >> 15), 15);
        int const rh = saturate(high.s + (high.det * g722_tables::qm2[byte >> 6] >> 15), 15);
        low.update(byte >> 2 & 15);
        high.update(byte >> 6);
        auto const [even, odd] = filter(rl - rh, rl + rh);
        return {saturate(even >> 12, 15), saturate(odd >> 12, 15)};
    }
    int encode(int first, int second) {
        auto const [even, odd] = filter(second, first);
        int const el = saturate(saturate((even + odd) >> 13, 15) - low.s);
        int const eh = saturate(saturate((even - odd) >> 13, 15) - high.s);
        int interval = 0;
        while (interval < 29 && (el < 0 ? -el - 1 : el) >= g722_tables::q6[interval + 1] * low.det >> 12)
            interval++;
        int const low_code = el < 0 ? g722_tables::iln[interval] : g722_tables::ilp[interval];
        bool const large = (eh < 0 ? -eh - 1 : eh) >= g722_tables::q2 * high.det >> 12;
        int const high_code = eh < 0 ? (large ? 0 : 1) : (large ? 2 : 3);
        low.update(low_code >> 2);
        high.update(high_code);
        return high_code << 6 | low_code;
    }
};

signals::samples twice(signals::samples pcm) {
    for (std::int16_t& sample : pcm)
        sample = static_cast<std::int16_t>(2 * sample);
    return pcm;
}

signals::bytes spandsp_encode(signals::samples const& pcm) {
    g722_encode_state_t* const state = g722_encode_init(nullptr, 64000, 0);
    signals::bytes out(pcm.size() / 2);
    g722_encode(state, out.data(), pcm.data(), static_cast<int>(pcm.size()));
    g722_encode_free(state);
    return out;
}

signals::samples spandsp_decode(signals::bytes const& data) {
    g722_decode_state_t* const state = g722_decode_init(nullptr, 64000, 0);
    signals::samples out(data.size() * 2);
    g722_decode(state, out.data(), data.data(), static_cast<int>(data.size()));
    g722_decode_free(state);
    return out;
}

/// 16 kHz, 15 bits.
signals::samples decode_pairs(signals::bytes const& data) {
    g722::decoder decoder;
    signals::samples out;
    for (int const byte : data) {
        g722::pair const two = decoder.process_pair(byte & 63, byte >> 6);
        out.push_back(static_cast<std::int16_t>(two.first));
        out.push_back(static_cast<std::int16_t>(two.second));
    }
    return out;
}

void expect_decoded_like_oracles(signals::bytes const& data) {
    signals::samples const ours = decode_pairs(data), spandsp = spandsp_decode(data);
    signals::samples const libav = libav_g722(libav_g722::decoder).decode(data);
    ASSERT_EQ(ours.size(), libav.size());
    for (std::size_t i = 0; i < ours.size(); i++) {
        ASSERT_EQ(ours[i], libav[i] >> 1) << "16 kHz sample " << i;
        bool const limited = ours[i] == -16384 || ours[i] == 16383;
        ASSERT_TRUE(limited || ours[i] == spandsp[i] >> 1) << "16 kHz sample " << i;
    }
}

TEST(G722, AgreesWithLibspandspAndLibavcodecAt16kHz) {
    for (signals::named const& signal : signals::assortment(128000, 8191, 722)) {
        SCOPED_TRACE(signal.name);
        g722::encoder encoder;
        signals::bytes ours;
        for (std::size_t i = 0; i < signal.pcm.size(); i += 2)
            ours.push_back(encoder.process(signal.pcm[i], signal.pcm[i + 1]));
        ASSERT_EQ(ours, spandsp_encode(twice(signal.pcm)));
        ASSERT_EQ(ours, libav_g722(libav_g722::encoder).encode(twice(signal.pcm)));
        expect_decoded_like_oracles(ours);
    }
}

TEST(G722, DecodesAnyBytesLikeLibspandspAndLibavcodec) {
    expect_decoded_like_oracles(signals::codes(480000, 8, 1, 9));
    for (unsigned byte = 0; byte < 256; byte++) {
        SCOPED_TRACE(byte);
        expect_decoded_like_oracles(signals::bytes(8000, static_cast<std::uint8_t>(byte)));
    }
}

TEST(G722, LimitsEverySumLikeTheModel) {
    for (unsigned seed = 0; seed < 24; seed++) {
        int const hold = 1 << seed % 12, period = 1 + static_cast<int>(seed / 6);
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        model_coder model;
        signals::bytes const data = signals::codes(60000, 8, hold, seed, period);
        signals::samples const ours = decode_pairs(data);
        for (std::size_t i = 0; i < data.size(); i++) {
            auto const [first, second] = model.decode(data[i]);
            ASSERT_EQ(ours[2 * i], first) << "byte " << i;
            ASSERT_EQ(ours[2 * i + 1], second) << "byte " << i;
        }
    }
    for (signals::named const& signal : signals::assortment(64000, 32767, 4)) {
        SCOPED_TRACE(signal.name);
        model_coder model;
        g722::encoder encoder;
        for (std::size_t i = 0; i < signal.pcm.size(); i += 2)
            ASSERT_EQ(encoder.process(signal.pcm[i], signal.pcm[i + 1]),
                      model.encode(signal.pcm[i], signal.pcm[i + 1]))
                << "16 kHz sample " << i;
    }
}

TEST(G722, InterpolatesAndDecimates8kHz) {
    for (signals::named const& signal : signals::assortment(48000, 32767, 8)) {
        SCOPED_TRACE(signal.name);
        signals::samples wideband;
        double previous = 0;
        for (double const sample : signal.pcm) {
            double const scaled = std::trunc(sample / 4);
            wideband.push_back(static_cast<std::int16_t>(std::trunc((previous + scaled) / 2)));
            wideband.push_back(static_cast<std::int16_t>(scaled));
            previous = scaled;
        }
        int const n = static_cast<int>(signal.pcm.size());
        g722 coder;
        signals::bytes data(signal.pcm.size() + 1, 0xA5);
        for (int at = 0, block = 0; at < n; at += block) {  // no matter how the stream is cut
            block = std::min(n - at, block == 33 ? 80 : 33);
            coder.encode(block, signal.pcm.data() + at, data.data() + at);
            coder.encode(0, signal.pcm.data(), data.data());
        }
        ASSERT_EQ(data.back(), 0xA5);
        data.pop_back();
        ASSERT_EQ(data, spandsp_encode(twice(wideband)));

        signals::samples const pairs = libav_g722(libav_g722::decoder).decode(data);
        signals::samples pcm(data.size() + 1, 0x5A5A);
        coder.decode(n, pcm.data(), data.data());
        coder.decode(0, pcm.data(), data.data());
        for (std::size_t i = 0; i < data.size(); i++) {
            double const mean = std::trunc(((pairs[2 * i] >> 1) + (pairs[2 * i + 1] >> 1)) / 2.0);
            ASSERT_EQ(pcm[i], std::clamp(mean * 4, -32768.0, 32767.0)) << "sample " << i;
        }
        ASSERT_EQ(pcm.back(), 0x5A5A);
    }
}

}  // namespace
