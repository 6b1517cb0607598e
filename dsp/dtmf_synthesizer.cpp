#include "dsp/dtmf_synthesizer.h"

#include "dsp/sine_tables.h"
#include "lib/pcm.h"

namespace {

// One table of a frequency group, played in a loop.
struct loop {
    std::int16_t const* samples;
    int length;

    int take(std::int32_t& position) const {
        int const sample = samples[position];
        position = position + 1 == length ? 0 : position + 1;
        return sample;
    }
};

template <int length>
constexpr loop loop_of(std::int16_t const (&samples)[length]) {
    return {samples, length};
}

constexpr loop low_697 = loop_of(sine::dtmf_697), low_770 = loop_of(sine::dtmf_770),
               low_852 = loop_of(sine::dtmf_852), low_941 = loop_of(sine::dtmf_941);
constexpr loop high_1209 = loop_of(sine::dtmf_1209), high_1336 = loop_of(sine::dtmf_1336),
               high_1477 = loop_of(sine::dtmf_1477);

// ITU-T Q.23, indexed by digit.
constexpr struct {
    loop low;
    loop high;
} keys[dtmf_synthesizer::digits] = {
    {low_941, high_1336},  // 0
    {low_697, high_1209},  // 1
    {low_697, high_1336},  // 2
    {low_697, high_1477},  // 3
    {low_770, high_1209},  // 4
    {low_770, high_1336},  // 5
    {low_770, high_1477},  // 6
    {low_852, high_1209},  // 7
    {low_852, high_1336},  // 8
    {low_852, high_1477},  // 9
    {low_941, high_1209},  // *
    {low_941, high_1477},  // #
};

}  // namespace

void dtmf_synthesizer::clear() {
    low_position = 0;
    high_position = 0;
}

str dtmf_synthesizer::get_samples(int digit, unsigned int attenuation) {
    std::int16_t samples[pcm::block_samples] = {};
    if (digit >= 0 && digit < digits) {
        if (digit != current_digit) {
            clear();
            current_digit = digit;
        }
        auto const& [low, high] = keys[digit];
        std::uint32_t const divisor = attenuation + 10;
        for (std::int16_t& sample : samples) {
            int const sum = low.take(low_position) + high.take(high_position);
            sample = static_cast<std::int16_t>(static_cast<std::uint32_t>(sum) / divisor);
        }
    }
    return str(reinterpret_cast<unsigned char const*>(samples), sizeof samples);
}
