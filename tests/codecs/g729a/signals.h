#pragma once

#include <algorithm>
#include <cstdint>

// Seeded signals that drive the coder into its corners. Integers only, so that every machine hears the same.

namespace g729a_test {

class random_source {
public:
    explicit random_source(uint32_t seed) : m_state(seed * 2654435761u + 1) {}

    uint32_t next() {
        m_state = m_state * 1664525u + 1013904223u;
        return m_state >> 8;
    }

    // low..high, both included.
    int32_t between(int32_t low, int32_t high) {
        return low + static_cast<int32_t>(next() % static_cast<uint32_t>(high - low + 1));
    }

private:
    uint32_t m_state;
};

// Noise, random and periodic squares, pulse trains, resonances, steps, near silence, each for up to 60
// frames.
class extreme_signal {
public:
    explicit extreme_signal(uint32_t seed) : m_random(seed) {}

    void frame(int16_t pcm[80]) {
        if (m_frames_left-- == 0)
            choose();
        for (int i = 0; i < 80; ++i)
            pcm[i] = static_cast<int16_t>(std::clamp(sample(), -32768, 32767));
    }

private:
    void choose() {
        m_kind = m_random.between(0, 7);
        m_frames_left = m_random.between(1, 60);
        m_amplitude = m_random.between(0, 2) == 0 ? 32767 : m_random.between(0, 32767);
        m_period = m_random.between(2, 200);
        m_pole = m_random.between(-2 * 32000, 2 * 32000);
        m_radius = m_random.between(30000, 32767);
        m_y1 = m_y2 = 0;
    }

    int32_t resonance() {
        const int64_t y = (int64_t{m_pole} * m_y1 - int64_t{m_radius} * m_y2) / 32768 +
                          m_random.between(-m_amplitude, m_amplitude) / 16;
        m_y2 = m_y1;
        m_y1 = static_cast<int32_t>(std::clamp<int64_t>(y, -200000, 200000));
        return m_y1;
    }

    int32_t sample() {
        ++m_time;
        switch (m_kind) {
            case 0: return m_random.between(-m_amplitude - 1, m_amplitude);
            case 1: return m_random.between(0, 1) == 0 ? m_amplitude : -m_amplitude - 1;
            case 2: return m_time / m_period % 2 == 0 ? m_amplitude : -m_amplitude - 1;
            case 3: return m_time % m_period == 0 ? m_amplitude : 0;
            case 4: return m_time / 400 % 2 == 0 ? m_amplitude : 0;
            case 5: return m_random.between(0, m_period) == 0 ? m_random.between(-32768, 32767) : 0;
            case 6: return m_random.between(-1, 1);
            default: return resonance();
        }
    }

    random_source m_random;
    int32_t m_kind = 0;
    int32_t m_frames_left = 0;
    int32_t m_amplitude = 0;
    int32_t m_period = 2;
    int32_t m_pole = 0;
    int32_t m_radius = 0;
    int32_t m_y1 = 0;
    int32_t m_y2 = 0;
    int32_t m_time = 0;
};

// FNV-1a, 64 bits.
class digest {
public:
    void add(uint8_t byte) { m_value = (m_value ^ byte) * 1099511628211u; }
    void add(int16_t word) {
        add(static_cast<uint8_t>(word & 0xff));
        add(static_cast<uint8_t>(word >> 8 & 0xff));
    }
    uint64_t value() const { return m_value; }

private:
    uint64_t m_value = 14695981039346656037u;
};

}  // namespace g729a_test
