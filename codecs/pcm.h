#pragma once

#include <cstdint>
#include <cstring>

/// Access to 16-bit samples in host byte order that lie at any address, as they do in sub-strings.

constexpr int bytes_per_sample = 2;

/// Sample i of `pcm`.
inline std::int16_t load_sample(unsigned char const* pcm, int i) {
    std::int16_t sample;
    std::memcpy(&sample, pcm + bytes_per_sample * i, sizeof sample);
    return sample;
}

inline void store_sample(unsigned char* pcm, int i, std::int16_t sample) {
    std::memcpy(pcm + bytes_per_sample * i, &sample, sizeof sample);
}
