#include "dsp/dtmf_recognition.h"

#include <spandsp.h>

#include <map>
#include <set>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/seed.h"
#include "tests/support/signals.h"

namespace {

using signals::samples;

constexpr int block = 160;
constexpr int frequencies[] = {697, 770, 852, 941, 1100, 1209, 1336, 1477, 1633};

/// A sum of sines; peak of each.
struct partial {
    double hz;
    double peak;
};
samples tones(std::vector<partial> const& partials, int n, double start_s = 0) {
    samples out = signals::silence(n);
    for (int i = 0; i < n; i++) {
        double sum = 0;
        for (auto const& [hz, peak] : partials)
            sum += peak * std::sin(2 * std::numbers::pi * hz * (start_s + i / 8000.0));
        out[static_cast<std::size_t>(i)] = signals::rounded(sum);
    }
    return out;
}

/// The detector by its definition: filter coefficients from the frequencies, 32-bit arithmetic on unbounded integers,
/// and what is reported from the sequence of all blocks.
class model {
public:
    void add(samples const& pcm, std::int64_t gain) {
        for (std::int64_t const sample : pcm) {
            collected.push_back(low32(sample * gain) / 256);
            if (collected.size() < block)
                continue;
            sequence += classify();
            collected.clear();
        }
    }
    /// Every run of two or more equal blocks counts once; the unknown ones before the first block don't.
    std::string detected() const {
        std::string text;
        for (std::size_t from = 0, to; from < sequence.size(); from = to) {
            to = std::min(sequence.find_first_not_of(sequence[from], from), sequence.size());
            if (from > 0 && to - from >= 2)
                text += sequence[from];
        }
        return text;
    }
    std::string history() const { return sequence.substr(sequence.size() - 3); }

private:
    static std::int64_t low32(std::int64_t value) {
        return (value % 4294967296 + 4294967296 + 2147483648) % 4294967296 - 2147483648;
    }
    static std::int64_t halved(std::int64_t value, int times) {  // rounding down
        std::int64_t const divisor = std::int64_t{1} << times;
        return (value - (value % divisor + divisor) % divisor) / divisor;
    }
    std::int64_t power(int hz) const {
        std::int64_t const coefficient = std::lround(65536 * std::cos(2 * std::numbers::pi * hz / 8000));
        std::vector<std::int64_t> s{0, 0};
        for (std::int64_t const x : collected) {
            std::int64_t const last = s.back(), before = s[s.size() - 2];
            s.push_back(low32(halved(low32(halved(last, 8) * coefficient), 7) + x - before));
        }
        std::int64_t const a = halved(s.back(), 8), b = halved(s[s.size() - 2], 8);
        auto const product = [](std::int64_t x, std::int64_t y) { return halved(low32(x * y), 15); };
        return low32(product(a, a) + product(b, b) - product(product(a, b), coefficient));
    }
    char classify() const {
        std::map<int, std::int64_t> powers;
        std::int64_t strongest = 0;
        for (int const hz : frequencies)
            strongest = std::max(strongest, powers[hz] = power(hz));
        if (strongest < 50)
            return ' ';
        std::vector<int> present;
        for (auto const& [hz, p] : powers)
            if (p > strongest / 10)
                present.push_back(hz);
        std::string const keys = "123A456B789C*0#D";
        for (std::size_t key = 0; key < keys.size(); key++)
            if (present == std::vector{frequencies[key / 4], frequencies[5 + key % 4]})
                return keys[key];
        return present == std::vector{1100} ? 'F' : '?';
    }

    std::vector<std::int64_t> collected;
    std::string sequence = "???";
};

/// What a generator of spandsp says in n samples.
samples played(auto generate, auto* generator, std::size_t n) {
    samples pcm(n);
    EXPECT_EQ(generate(generator, pcm.data(), static_cast<int>(n)), static_cast<int>(n));
    return pcm;
}

struct dtmf_detector : testing::Test {
    ~dtmf_detector() override { dtmf_recognition::input_gain = 512; }

    /// With an odd last byte, which is ignored.
    void feed(samples const& pcm) {
        std::string const bytes(reinterpret_cast<char const*>(pcm.data()), pcm.size() * sizeof pcm[0]);
        detector.add_samples(to_str(bytes + "\x7F"));
    }
    std::string detected() const { return to_string(detector.get_detected()); }
    /// Feeds the reference too and compares all that can be seen.
    void both(samples const& pcm) {
        reference.add(pcm, dtmf_recognition::input_gain);
        feed(pcm);
        ASSERT_EQ(detected(), reference.detected());
        std::string const history = reference.history();
        bool const stable = history == std::string(3, history[0]);
        ASSERT_EQ(detector.get_digit(), stable ? history[0] : '?');
        for (char const c : "0123456789*#ABCDF? ")
            ASSERT_EQ(detector.count_history(c), std::count(history.begin(), history.end(), c)) << c << history;
        seen.insert(history.back());
    }
    dtmf_recognition detector;
    model reference;
    std::set<char> seen;
};

TEST_F(dtmf_detector, every_key_and_the_fax_tone_of_another_generator) {
    for (int const level_dbm0 : {-3, -10, -18})
        for (std::string keys : {"123A456B789C*0#D", "DDD0000##", "1212121", "A"}) {
            dtmf_tx_state_t* const generator = dtmf_tx_init(nullptr);
            dtmf_tx_set_level(generator, level_dbm0, 0);
            dtmf_tx_set_timing(generator, 80, 80);
            ASSERT_EQ(dtmf_tx_put(generator, keys.c_str(), -1), 0);
            detector.clear();
            feed(played(dtmf_tx, generator, keys.size() * 1280));
            dtmf_tx_free(generator);
            std::string pressed = detected();
            std::erase_if(pressed, [](char c) { return c == ' ' || c == '?'; });
            EXPECT_EQ(pressed, keys) << level_dbm0 << " dBm0";
        }
    auto* const generator = modem_connect_tones_tx_init(nullptr, MODEM_CONNECT_TONES_FAX_CNG);
    detector.clear();
    feed(played(modem_connect_tones_tx, generator, 8000 * 8));  // 0.5 s on, 3 s off
    modem_connect_tones_tx_free(generator);
    EXPECT_EQ(detected(), "F F F ");
}

// ---- sample for sample

/// Close to each decision, where a power that is off by one shows.
TEST_F(dtmf_detector, levels_around_the_thresholds) {
    for (int const gain : {512, 301}) {  // 301 rounds every sample
        dtmf_recognition::input_gain = gain;
        for (int const hz : frequencies)
            for (int peak = 1900; peak < 2200; peak++)
                ASSERT_NO_FATAL_FAILURE(both(tones({{1.0 * hz, peak * 512.0 / gain}}, block, peak)))
                    << hz << " " << peak;
    }
    dtmf_recognition::input_gain = 512;
    for (int twist = 0; twist < 400; twist++) {
        double const other = 6000 * std::pow(10, -(9 + twist / 100.0) / 20);
        ASSERT_NO_FATAL_FAILURE(both(tones({{852, 6000}, {1336, other}}, block, twist))) << twist;
        ASSERT_NO_FATAL_FAILURE(both(tones({{852, other}, {1336, 6000}}, block, twist))) << twist;
    }
    for (int shift = -300; shift <= 300; shift++)
        ASSERT_NO_FATAL_FAILURE(both(tones({{941.0 + shift, 6000}, {1633, 6000}}, block))) << shift;
}

TEST_F(dtmf_detector, random_tones_noise_and_chunks) {
    seed_range{1, 12}.roll([&](dice& random) {
        detector.clear();
        reference = model();
        for (int segment = 0; segment < 30; segment++) {
            double const peak = std::pow(10, random.between(31, 45) / 10.0);
            std::vector<partial> partials;
            for (int n = random.between(0, 3); n > 0; n--)
                partials.push_back(
                    {frequencies[random.below(9)] + random.between(-20, 20) / 10.0, peak * random.between(4, 10) / 10});
            samples pcm = tones(partials, random.between(1, 900), random.below(1000));
            int const noise = random.chance(30) ? random.between(1, 3000) : 0;
            for (std::int16_t& sample : pcm)
                sample = signals::rounded(sample + random.between(-noise, noise));
            for (auto from = pcm.begin(), to = from; from != pcm.end(); from = to) {
                to += std::min<std::ptrdiff_t>(pcm.end() - from, random.between(0, 200));
                ASSERT_NO_FATAL_FAILURE(both(samples(from, to)));
            }
            if (random.chance(40))
                dtmf_recognition::input_gain = random.chance(60) ? 512 : random.between(-30000, 30000);
        }
    });
    EXPECT_GE(seen.size(), 15u) << "the signals hardly reach any class";
}

/// The filters' sums wrap at full scale; nothing else may happen.
TEST_F(dtmf_detector, full_scale_signals_and_gains) {
    for (int const gain : {512, 65535, -65536, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        dtmf_recognition::input_gain = gain;
        for (auto const& [name, pcm] : signals::assortment(4 * block, 32767, 7))
            ASSERT_NO_FATAL_FAILURE(both(pcm)) << name << " gain " << gain;
        for (int half_period = 1; half_period <= 12; half_period++)
            ASSERT_NO_FATAL_FAILURE(both(signals::square(4 * block, half_period, 32767))) << half_period;
        for (int const hz : frequencies)
            ASSERT_NO_FATAL_FAILURE(both(tones({{1.0 * hz, 1e6}}, 2 * block))) << hz << " gain " << gain;
    }
}

}  // namespace
