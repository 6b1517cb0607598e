#include "tools/fxsline/line_audio.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace fxsline {

void level_meter::add(block const& samples) {
    uint64_t energy = 0;
    for (int sample : samples) {
        energy += static_cast<uint64_t>(sample * sample);
        highest = std::max(highest, static_cast<unsigned>(std::abs(sample)));
    }
    uint64_t& oldest = energies[added++ % energies.size()];
    total += energy - oldest;
    oldest = energy;
}

double level_meter::dbfs() const {
    if (total == 0)
        return silence_dbfs;
    double const samples = static_cast<double>(std::min<uint64_t>(added, energies.size()) * block_samples);
    double const full_scale_energy = samples * 32767.0 * 32767.0 / 2;
    return 10 * std::log10(static_cast<double>(total) / full_scale_energy);
}

}  // namespace fxsline
