#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace fxsphone {

/// ms of ringing and of silence in turn, from the beginning again after the last one; an odd number of them rings once
/// only. Empty: the driver's own.
using ring_cadence = std::vector<int>;

/// Of a country by its code of two letters (ISO 3166), as ITU-T E.180 supplement 2 has its ringing tone. nullopt: not
/// known.
std::optional<ring_cadence> cadence_of_country(std::string_view code);

/// The pattern that a caller asks for with Alert-Info "Bellcore-drN", N from 2 to 5 (Telcordia GR-506-CORE section
/// 14.2); otherwise `normal`, which is pattern 1. Nothing when that is empty.
ring_cadence distinctive_cadence(int pattern, ring_cadence const& normal);

}  // namespace fxsphone
