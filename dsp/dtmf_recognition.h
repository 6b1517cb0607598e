#pragma once

#include <cstdint>

#include "lib/str.h"

/// Detects DTMF digits (the full keypad, A to D included) and the 1100 Hz fax calling tone (ITU-T T.30 section 4.3)
/// in 16-bit PCM at 8 kHz.
///
/// Blocks of 160 samples (20 ms) go through nine Goertzel filters; every block becomes one character. What has just
/// become stable over two blocks is appended to the detected text: "0" to "9", "*", "#", "A" to "D", "F" for the fax
/// tone, a blank for too little energy, "?" for anything else. The only spectral check is that no other filter exceeds
/// a tenth of the strongest one's power: there is neither a twist nor a harmonic test. A device manager owns one.
class dtmf_recognition {
public:
    /// Gain of the input in 1/256; 512 (twice) until somebody changes it.
    static std::int32_t input_gain;

    dtmf_recognition() { clear(); }

    /// Back to the initial state: nothing detected, no history.
    void clear();

    /// Feeds samples in host byte order; an odd last byte is ignored.
    void add_samples(str const& pcm);

    /// Everything reported since clear(), one byte each.
    str const& get_detected() const { return detected; }
    void forget_detected() { detected.clear(); }
    /// The character of the last block.
    char get_latest() const { return history[history_blocks - 1]; }
    /// How much of the last block's energy is in its strongest row and its strongest column.
    int tone_percent() const;
    /// The character of the last three blocks when they agree, else "?".
    char get_digit() const;
    /// How many of the last three blocks gave c.
    int count_history(char c) const;

    /// Runs the filters over the sample block.
    void calc_power();
    /// Runs the filters and classifies the block.
    char decode();

private:
    static constexpr int block_samples = 160;
    static constexpr int filters = 9;
    static constexpr int history_blocks = 3;

    void add_sample(std::int32_t sample);
    char keypad_character(std::int32_t threshold) const;

    std::int32_t samples[block_samples] = {};  ///< of the current block, scaled
    std::int32_t count;                        ///< samples in the block so far
    str detected;
    std::int32_t power[filters] = {};  ///< of the last block, in filter order
    char history[history_blocks];      ///< oldest first
};
