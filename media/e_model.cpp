#include "media/e_model.h"

#include <algorithm>

#include "lib/protocol.h"

namespace {

/// ITU-T G.113 Appendix I, tables I.1 to I.4, in tenths; bpl 0: not given there. G.711 without concealment.
constexpr struct {
    int codec, ie, bpl;
} impairments[] = {
    {protocol::codec_number::linear, 0, 43}, {protocol::codec_number::pcmu, 0, 43},
    {protocol::codec_number::pcma, 0, 43},   {protocol::codec_number::g729, 110, 190},
    {protocol::codec_number::gsm, 200, 0},   {protocol::codec_number::g726, 70, 0},
};

constexpr int best = 932;  // of the default values

/// Impairment by delay in tenths, echo included (G.107 section 7.4), every 50 ms from 0 on.
constexpr int delay_step_ms = 50;
constexpr int delay_impairments[] = {0,   14,  25,  37,  74,  140, 205, 262, 309, 350, 384,
                                     413, 437, 458, 476, 491, 504, 515, 525, 534, 541};

int delay_impairment(int ms) {
    constexpr int last = static_cast<int>(sizeof delay_impairments / sizeof *delay_impairments) - 1;
    int const at = std::clamp(ms, 0, last * delay_step_ms - 1);
    int const* const below = delay_impairments + at / delay_step_ms;
    return below[0] + (below[1] - below[0]) * (at % delay_step_ms) / delay_step_ms;
}

}  // namespace

int e_model::rating(int codec, int loss_q8, int one_way_ms) {
    auto const* const end = impairments + sizeof impairments / sizeof *impairments;
    auto const* const found = std::find_if(impairments, end, [codec](auto const& i) { return i.codec == codec; });
    if (found == end || (loss_q8 > 0 && found->bpl == 0))
        return unknown;
    int const loss = loss_q8 * 1000;  // per cent in 1/2560
    int const by_loss = loss > 0 ? static_cast<int>((950LL - found->ie) * loss / (loss + 256 * found->bpl)) : 0;
    return std::max(best - found->ie - by_loss - delay_impairment(one_way_ms), 0);
}

int e_model::opinion(int rating) {
    if (rating == unknown)
        return unknown;
    // 1 + 0.035 R + 7e-6 R (R - 60) (100 - R), in millionths of a tenth.
    long long const r = rating;
    long long const score = 10000000 + 35000 * r + 7 * r * (r - 600) * (1000 - r) / 100;
    return static_cast<int>(std::clamp((score + 500000) / 1000000, 10LL, 45LL));
}
