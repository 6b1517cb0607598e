#pragma once

#include <cstdint>
#include <cstring>

/// Audio as it is everywhere inside: signed 16-bit samples in host byte order, 8000 a second, moved in blocks of 10 ms.
namespace pcm {

constexpr int rate_hz = 8000;
constexpr int sample_bytes = 2;
constexpr int samples_per_ms = rate_hz / 1000;
constexpr int bytes_per_ms = samples_per_ms * sample_bytes;
constexpr int block_ms = 10;
constexpr int block_samples = block_ms * samples_per_ms;
constexpr int block_bytes = block_ms * bytes_per_ms;

/// Sample i of PCM at any address, as it is in sub-strings.
inline std::int16_t load_sample(unsigned char const* audio, int i) {
    std::int16_t sample;
    std::memcpy(&sample, audio + sample_bytes * i, sizeof sample);
    return sample;
}

inline void store_sample(unsigned char* audio, int i, std::int16_t sample) {
    std::memcpy(audio + sample_bytes * i, &sample, sizeof sample);
}

/// Tells a loop over whole samples that they are aligned, where they are: on machines that load no half-word from an
/// odd address, a sample is then one load or store. `loop` takes the audio; what it returns is ignored.
template <typename octet, typename action>
inline void with_alignment_known(octet* audio, action const& loop) {
    if (reinterpret_cast<std::uintptr_t>(audio) % sample_bytes == 0)
        loop(static_cast<octet*>(__builtin_assume_aligned(audio, sample_bytes)));
    else
        loop(audio);
}

}  // namespace pcm
