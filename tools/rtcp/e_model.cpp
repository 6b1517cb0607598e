#include "tools/rtcp/e_model.h"

#include <algorithm>
#include <cmath>

#include "lib/protocol.h"

namespace rtcp_view {
namespace {

/// ITU-T G.113 Appendix I, tables I.1 to I.4; bpl 0: not given there. G.711 without concealment.
struct impairment {
    int codec;
    double ie;
    double bpl;
};
constexpr impairment impairments[] = {
    {protocol::codec_number::pcmu, 0, 4.3}, {protocol::codec_number::pcma, 0, 4.3},
    {protocol::codec_number::g729, 11, 19}, {protocol::codec_number::gsm, 20, 0},
    {protocol::codec_number::g726, 7, 0},
};

// Default values of G.107 table 2, and what follows from them alone: circuit noise, basic signal-to-noise ratio
// (formula 7-3), simultaneous impairment (7-8 to 7-16).
constexpr double noise_dbm0p = -61.18, ro = 94.77, is = 1.41;
constexpr double rlr = 2, telr = 65, wepl = 110;

double echo_impairment(double t) {
    if (t < 1)
        return 0;
    double const terv = telr - 40 * std::log10((1 + t / 10) / (1 + t / 150)) + 6 * std::exp(-0.3 * t * t);
    double const re = 80 + 2.5 * (terv - 14), roe = -1.5 * (noise_dbm0p - rlr);
    double const half = (roe - re) / 2;
    return (half + std::sqrt(half * half + 100) - 1) * (1 - std::exp(-t));
}

double listener_echo_impairment(double round_trip) {
    double const half = (ro - 10.5 * (wepl + 7) * std::pow(round_trip + 1, -0.25)) / 2;
    return half + std::sqrt(half * half + 169);
}

double delay_impairment(double t) {
    if (t <= 100)
        return 0;
    double const x = std::log2(t / 100);
    auto const root = [](double y) { return std::pow(1 + std::pow(y, 6), 1.0 / 6); };
    return 25 * (root(x) - 3 * root(x / 3) + 2);
}

double opinion(double r) {
    return r <= 0 ? 1 : std::clamp(1 + 0.035 * r + r * (r - 60) * (100 - r) * 7e-6, 1.0, 4.5);
}

}  // namespace

transmission_rating rate(int codec, double loss_percent, double one_way_ms) {
    auto const found = std::ranges::find(impairments, codec, &impairment::codec);
    if (found == std::end(impairments))
        return {std::nullopt, 0, "ITU-T G.113 has no value of this codec for narrow-band"};
    if (loss_percent > 0 && found->bpl == 0)
        return {std::nullopt, 0, "ITU-T G.113 does not say how this codec bears losses"};
    double const ie =
        found->ie + (loss_percent > 0 ? (95 - found->ie) * loss_percent / (loss_percent + found->bpl) : 0);
    double const id =
        echo_impairment(one_way_ms) + listener_echo_impairment(2 * one_way_ms) + delay_impairment(one_way_ms);
    double const r = std::clamp(ro - is - id - ie, 0.0, 100.0);
    return {r, opinion(r), ""};
}

}  // namespace rtcp_view
