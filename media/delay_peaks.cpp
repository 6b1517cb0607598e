#include "media/delay_peaks.h"

#include <algorithm>

namespace {

constexpr int rise = 320;                        // 40 ms beyond the usual: two packets of 20 ms
constexpr std::uint32_t lasting = 4000;          // 500 ms, in which all late packets belong to one hold-up
constexpr std::uint32_t farthest_apart = 80000;  // 10 s
constexpr int highest = 1600;                    // 200 ms: beyond, the delay would be worse than the loss
constexpr int margin = 10;                       // 1.25 ms

}  // namespace

void delay_peaks::add(int delay, int usual, std::uint32_t arrived) {
    std::uint32_t const since = arrived - began;
    if (delay > usual + rise) {
        if (!any || since > lasting) {
            period = any && since <= farthest_apart ? since : 0;
            heights[1] = heights[0];
            heights[0] = 0;
            began = arrived;
            any = true;
        }
        heights[0] = std::max(heights[0], delay);
    } else if (since > 2 * period) {
        period = 0;
    }
}

int delay_peaks::get_expected() const {
    int const height = std::max(heights[0], heights[1]);
    return period == 0 || height > highest ? 0 : height + margin;
}
