#pragma once

/// Sizes that all blocks of the coder share, in samples at 8 kHz unless said otherwise. Capitals are the names of
/// the ITU-T's fixed-point software.
namespace g729a {

constexpr int frame_size = 80;                                     ///< L_FRAME: 10 ms (G.729 2)
constexpr int subframe_size = 40;                                  ///< L_SUBFR: 5 ms (G.729 2)
constexpr int subframes = frame_size / subframe_size;              ///< of a frame
constexpr int speech_past = 120;                                   ///< what LP analysis sees before the frame (3.2.1)
constexpr int lookahead = 40;                                      ///< L_NEXT: what it sees behind the frame (3.2.1)
constexpr int window_size = speech_past + frame_size + lookahead;  ///< L_WINDOW (3.2.1)

constexpr int lp_order = 10;           ///< M (3.2)
constexpr int lp_size = lp_order + 1;  ///< MP1, coefficients of an LP filter, the first of them 1
constexpr int lsf_memory = 4;          ///< MA_NP, past frames that LSF are predicted from (3.2.4)
constexpr int gain_memory = 4;         ///< past subframes that the gain is predicted from (3.9.1)

constexpr int pit_min = 20;   ///< PIT_MIN, shortest delay of a pitch search (3.4)
constexpr int pit_max = 143;  ///< PIT_MAX, longest (3.4)
/// PIT_MAX + L_INTERPOL, past excitation: the longest delay that can be decoded, 144 (4.1.3), and half an interpolation
/// filter, 10 (3.7.1).
constexpr int exc_past = 154;
constexpr int taming_zones = 4;  ///< of 40 samples of delay (3.7.3)

}  // namespace g729a
