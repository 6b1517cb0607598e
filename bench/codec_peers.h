#pragma once

#include <vector>

#include "bench/stopwatch.h"
#include "tests/support/signals.h"

/// The coders of other libraries on the same signal, for comparison. A library that this build is without contributes
/// nothing.
namespace codec_peers {

/// Of one codec of ours (codec::mu_law ...): what encodes the signal and what decodes it, from first sample to last.
/// An operation is 10 ms.
struct entries {
    std::vector<stopwatch::contestant> encoders;
    std::vector<stopwatch::contestant> decoders;
};

/// pcm: 8 kHz; wide: the same at 16 kHz, for G.722. Both must outlive the entries.
entries of_codec(int codec, signals::samples const& pcm, signals::samples const& wide);

}  // namespace codec_peers
