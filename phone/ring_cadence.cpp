#include "phone/ring_cadence.h"

#include <algorithm>

namespace fxsphone {

namespace {

struct national_cadence {
    ring_cadence times;
    std::string_view countries;
};

std::vector<national_cadence> const& national_cadences() {
    static std::vector<national_cadence> const all = {
        {{1000, 4000}, "br ch cn cz de dk fi gr it mx nl no pl"},
        {{400, 200, 400, 2000}, "au gb ie in nz sg za"},
        {{2000, 4000}, "ca tr us"},
        {{1000, 5000}, "at pt se"},
        {{1000, 2000}, "jp kr"},
        {{1000, 3000}, "be il"},
        {{1500, 3500}, "fr"},
        {{1500, 3000}, "es"},
        {{1250, 3750}, "hu"},
        {{800, 3200}, "ru"},
        {{400, 200, 400, 3000}, "hk"},
    };
    return all;
}

}  // namespace

std::optional<ring_cadence> cadence_of_country(std::string_view code) {
    auto const found = std::ranges::find_if(national_cadences(), [&](national_cadence const& one) {
        std::size_t const at = one.countries.find(code);
        return code.size() == 2 && at != one.countries.npos && at % 3 == 0;
    });
    return found == national_cadences().end() ? std::nullopt : std::optional(found->times);
}

ring_cadence distinctive_cadence(int pattern, ring_cadence const& normal) {
    switch (normal.empty() ? 1 : pattern) {
        case 2: return {800, 400, 800, 4000};
        case 3: return {400, 200, 400, 200, 800, 4000};
        case 4: return {300, 200, 1000, 200, 300, 4000};
        case 5: return {500};
        default: return normal;
    }
}

}  // namespace fxsphone
