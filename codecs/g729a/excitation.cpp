#include "codecs/g729a/excitation.h"

#include <algorithm>

#include "codecs/g729a/basic_op.h"
#include "codecs/g729a/dimensions.h"

namespace g729a {

void build_excitation(int16_t exc[subframe_size], int16_t const code[subframe_size], int16_t gain_pit,
                      int16_t gain_code) {
    // Below 29492 * 2^15 + 2^30 < 2^31 - 2^13, so clipping once at the end is enough.
    for (int i = 0; i < subframe_size; ++i)
        exc[i] = sat16((exc[i] * gain_pit + code[i] * gain_code + 0x2000) >> 14);
}

int16_t next_sharp(int16_t gain_pit) {
    return std::clamp(gain_pit, sharp_min, sharp_max);
}

}  // namespace g729a
