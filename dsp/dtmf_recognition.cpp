#include "dsp/dtmf_recognition.h"

#include <algorithm>

#include "lib/pcm.h"

std::int32_t dtmf_recognition::input_gain = 512;

namespace {

// Filters: 2 cos(2 pi f / 8000) in Q15. Four rows (697, 770, 852, 941 Hz), the fax tone (1100 Hz), four columns (1209,
// 1336, 1477, 1633 Hz); ITU-T Q.23.
constexpr std::int32_t coefficients[] = {55959, 53913, 51403, 48438, 42562, 38145, 32649, 26169, 18630};
constexpr int rows = 4;
constexpr int fax_filter = 4;
constexpr int first_column = 5;
constexpr char keypad[rows][5] = {"123A", "456B", "789C", "*0#D"};

constexpr char silence = ' ';
constexpr char unknown = '?';
constexpr char fax = 'F';

constexpr std::int32_t least_power = 50;  // of the strongest filter; below: silence
constexpr std::int32_t power_ratio = 10;  // strongest to what counts as absent

constexpr std::int32_t gain_divisor = 256;

/// Sums and products of the filters are taken modulo 2^32.
std::int32_t wrap(std::int64_t value) {
    return static_cast<std::int32_t>(static_cast<std::uint64_t>(value));
}
std::int32_t product(std::int32_t a, std::int32_t b) {
    return wrap(static_cast<std::int64_t>(a) * b);
}

/// Power of one filter over the block (Goertzel).
std::int32_t goertzel(std::int32_t const* samples, int n, std::int32_t coefficient) {
    std::int32_t s1 = 0;
    std::int32_t s2 = 0;
    for (int i = 0; i < n; i++) {
        std::int32_t const s = wrap(static_cast<std::int64_t>(product(s1 >> 8, coefficient) >> 7) + samples[i] - s2);
        s2 = s1;
        s1 = s;
    }
    std::int32_t const a = s1 >> 8;
    std::int32_t const b = s2 >> 8;
    std::int64_t const squares = static_cast<std::int64_t>(product(a, a) >> 15) + (product(b, b) >> 15);
    return wrap(squares - (product(product(a, b) >> 15, coefficient) >> 15));
}

}  // namespace

void dtmf_recognition::clear() {
    std::fill(history, history + history_blocks, unknown);
    count = 0;
    detected.clear();
}

void dtmf_recognition::add_samples(str const& pcm) {
    unsigned char const* const in = pcm.cbuffer();
    for (int i = 0; i < pcm.length() / pcm::sample_bytes; i++)
        add_sample(pcm::load_sample(in, i));
}

void dtmf_recognition::add_sample(std::int32_t sample) {
    samples[count++] = product(sample, input_gain) / gain_divisor;
    if (count < block_samples)
        return;
    char const c = decode();
    count = 0;
    std::copy(history + 1, history + history_blocks, history);
    history[2] = c;
    if (history[2] == history[1] && history[2] != history[0])
        detected += c;
}

char dtmf_recognition::get_digit() const {
    return count_history(history[0]) == history_blocks ? history[0] : unknown;
}

int dtmf_recognition::count_history(char c) const {
    return static_cast<int>(std::count(history, history + history_blocks, c));
}

void dtmf_recognition::calc_power() {
    for (int k = 0; k < filters; k++)
        power[k] = goertzel(samples, block_samples, coefficients[k]);
}

char dtmf_recognition::decode() {
    calc_power();
    std::int32_t const strongest = std::max(0, *std::max_element(power, power + filters));
    if (strongest < least_power)
        return silence;
    std::int32_t const threshold = strongest / power_ratio;
    auto const present = std::count_if(power, power + filters, [&](std::int32_t p) { return p > threshold; });
    if (present == 1 && power[fax_filter] > threshold)
        return fax;
    return present == 2 ? keypad_character(threshold) : unknown;
}

/// The key of the first row and the first column present; unknown when one of both is missing.
char dtmf_recognition::keypad_character(std::int32_t threshold) const {
    for (int row = 0; row < rows; row++)
        for (int column = 0; power[row] > threshold && column < 4; column++)
            if (power[first_column + column] > threshold)
                return keypad[row][column];
    return unknown;
}

int dtmf_recognition::tone_percent() const {
    // A filter's power is 2^-31 of the square of what n samples of a sine sum up to; n / 2 such squares are its energy.
    std::int64_t const tones = static_cast<std::int64_t>(*std::max_element(power, power + rows)) +
                               *std::max_element(power + first_column, power + filters);
    std::int64_t energy = 1;
    for (std::int32_t const sample : samples)
        energy += static_cast<std::int64_t>(sample) * sample;
    return static_cast<int>((tones << 31) / (block_samples / 2) * 100 / energy);
}
