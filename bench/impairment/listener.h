#pragma once

#include <cstdint>
#include <vector>

#include "bench/far_end.h"
#include "bench/impairment/network.h"
#include "bench/impairment/speech.h"
#include "codecs/codec.h"
#include "media/playout.h"

/// A simulated call in which the far end says something and the telephone on line 0 hears it.
class listener : public far_end {
public:
    /// The call is over when this returns. `codec`: one of protocol::codec_number.
    listener(network const& chosen, sound const& speech, std::uint64_t seed, int codec);

    sound heard;  ///< from the beginning of the call, by the line's clock; a block counts when its 10 ms are over
    playout::totals counted;

    void wake(int number) override;
    void line(int, std::int16_t const* block, std::int16_t*) override;

private:
    void send(int number);

    network const& played;
    sound const& said;
    std::vector<std::int64_t> arrivals;
    codec coder;
    int const codec_number;
};
