#include "codecs/g729a/taming.h"

#include <algorithm>

#include "codecs/g729a/dimensions.h"
#include "codecs/g729a/oper_32b.h"

namespace g729a {

namespace {

constexpr int32_t err_limit = 983040000;  // Q14, 60000

// Zone of a distance into the past excitation, 0..152 samples.
int zone(int distance) {
    return distance / subframe_size;
}

// 1 + gain err, Q14.
int32_t grown(int32_t err, int16_t gain) {
    return L_add(exc_err_at_rest, L_shl(Mpy_32_16(err, gain), 1));
}

}  // namespace

bool test_err(int32_t const exc_err[4], int t0, int frac) {
    int const delay = frac > 0 ? t0 + 1 : t0;
    int const first = zone(std::max(delay - (subframe_size + 10), 0));
    int const last = zone(delay + 8);
    return *std::max_element(exc_err + first, exc_err + last + 1) > err_limit;
}

void update_exc_err(int32_t exc_err[4], int16_t gain_pit, int t0) {
    int32_t worst = -1;
    if (t0 < subframe_size) {
        int32_t const once = grown(exc_err[0], gain_pit);
        worst = std::max({worst, once, grown(once, gain_pit)});
    } else {
        for (int z = zone(t0 - subframe_size); z <= zone(t0 - 1); ++z)
            worst = std::max(worst, grown(exc_err[z], gain_pit));
    }
    std::copy_backward(exc_err, exc_err + 3, exc_err + 4);
    exc_err[0] = worst;
}

}  // namespace g729a
