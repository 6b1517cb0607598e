#include "dsp/mixing.h"

#include <cstdint>
#include <cstring>

#include <limits>

#include "lib/pcm.h"

namespace {

/// As many samples as fit in a register are added at once: a machine without vector instructions takes three quarters
/// of the instructions of a loop by the sample (two samples a word), one of 64 bits less than half.
using word = unsigned long;
constexpr word signs = std::numeric_limits<word>::max() / 0xFFFF * 0x8000;  // the sign bit of each sample
constexpr int word_samples = sizeof(word) / pcm::sample_bytes;

word load(unsigned char const* samples) {
    word w;
    std::memcpy(&w, __builtin_assume_aligned(samples, sizeof(word)), sizeof w);
    return w;
}

void store(unsigned char* samples, word w) {
    std::memcpy(__builtin_assume_aligned(samples, sizeof(word)), &w, sizeof w);
}

/// Without a carry from one sample to the next; each wraps.
word wrapped_sums(word a, word b) {
    return ((a & ~signs) + (b & ~signs)) ^ ((a ^ b) & signs);
}

/// The sign bit of each sum that has another sign than both its terms.
word overflows(word a, word b, word sums) {
    return ~(a ^ b) & (a ^ sums) & signs;
}

/// The sums with the limit of a's sign where one overflowed.
word saturated(word sums, word a, word overflowed) {
    constexpr int to_lowest = 15;  // bit of a sample
    word const replaced = (overflowed >> to_lowest) * 0xFFFF;
    word const limits = ~signs + ((a & signs) >> to_lowest);
    return (sums & ~replaced) | (limits & replaced);
}

bool aligned(void const* p) {
    return reinterpret_cast<std::uintptr_t>(p) % sizeof(word) == 0;
}

std::int16_t saturated_sum(std::int16_t a, std::int16_t b) {
    int const sum = a + b;
    auto const kept = static_cast<std::int16_t>(sum);
    return kept == sum ? kept : static_cast<std::int16_t>(sum >> 31 ^ std::numeric_limits<std::int16_t>::max());
}

void mix_by_sample(unsigned char const* a, unsigned char const* b, int n, unsigned char* sums) {
    for (int i = 0; i < n; i++)
        pcm::store_sample(sums, i, saturated_sum(pcm::load_sample(a, i), pcm::load_sample(b, i)));
}

}  // namespace

void mix_samples(unsigned char const* a, unsigned char const* b, int n, unsigned char* sums) {
    int const in_words = aligned(a) && aligned(b) && aligned(sums) ? n / word_samples * word_samples : 0;
    for (int i = 0; i < in_words; i += word_samples) {
        int const at = i * pcm::sample_bytes;
        word const x = load(a + at), y = load(b + at), wrapped = wrapped_sums(x, y);
        word const overflowed = overflows(x, y, wrapped);
        store(sums + at, overflowed == 0 ? wrapped : saturated(wrapped, x, overflowed));
    }
    int const rest = in_words * pcm::sample_bytes;
    mix_by_sample(a + rest, b + rest, n - in_words, sums + rest);
}
