#include "tools/fxslink/impairment.h"

impairment::impairment(settings const& wanted, std::uint32_t seed) : chosen(wanted), random(seed) {}

bool impairment::happens(double percent) {
    return std::uniform_real_distribution<double>(0, 100)(random) < percent;
}

std::chrono::milliseconds impairment::delay() {
    int const jitter = std::uniform_int_distribution<int>(0, chosen.jitter_ms)(random);
    return std::chrono::milliseconds(chosen.delay_ms + jitter);
}

std::vector<std::chrono::milliseconds> impairment::next() {
    counted.packets++;
    if (happens(chosen.loss_percent)) {
        counted.lost++;
        return {};
    }
    if (!happens(chosen.duplicate_percent))
        return {delay()};
    counted.duplicated++;
    return {delay(), delay()};
}
