#pragma once

#include <optional>
#include <string>

/// The E-model of ITU-T G.107, narrow-band, with its default values for everything that is not given.
namespace rtcp_view {

struct transmission_rating {
    std::optional<double> r;  ///< 0 to 93.2; absent: unknown
    double mos = 0;           ///< conversational quality, G.107 Annex B
    std::string unknown;      ///< why r is absent
};

/// `codec`: number of lib/protocol.h. `loss_percent`: packets lost or discarded, taken as independent of one another.
/// `one_way_ms`: from mouth to ear. Unknown for a codec that the narrow-band model does not have (G.722), and with
/// losses for one whose robustness ITU-T G.113 Appendix I does not give.
transmission_rating rate(int codec, double loss_percent, double one_way_ms);

}  // namespace rtcp_view
