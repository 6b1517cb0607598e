#pragma once

#include "bench/impairment/delay_track.h"

/// How far the spectrum of what is heard is from that of what was said, dB: the root mean square of the level
/// difference in 16 critical bands (100 to 3700 Hz, Zwicker 1961), in frames of 20 ms (Hann, 32 ms), each compared with
/// the time it was said at; the mean of all frames in which something was said. To each band is added what is 30 dB
/// below the power of the frame and 50 dB below that of the mean frame: what is masked is no distance. 0: alike.
/// Compares players; coders of different kinds only on natural speech, whose formants move.
double spectral_distance_db(sound const& said, sound const& heard, delay_track const& track);
