#pragma once

// Sizes that all blocks of the coder share, in samples at 8 kHz unless said otherwise.

namespace g729a {

constexpr int frame_size = 80;
constexpr int subframe_size = 40;
constexpr int lp_order = 10;
constexpr int pit_min = 20;   // shortest pitch delay of a search
constexpr int pit_max = 143;  // longest
constexpr int exc_past =
    154;  // past excitation: the longest decodable delay, 144, and half an interpolation filter

}  // namespace g729a
