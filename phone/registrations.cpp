#include "phone/registrations.h"

#include <algorithm>

namespace fxsphone {

void registrations::begin(sip* stack, telephone_list const& telephones, std::string const& instance) {
    constexpr std::uint64_t apart_ms = 500;
    std::uint64_t after_ms = 0;
    for (auto const& one : telephones) {
        if (!one->settings.registrar)
            continue;
        after_ms += rand_u16() % apart_ms;
        all.push_back(std::make_unique<registration>(stack, one->settings, instance, after_ms));
        after_ms += apart_ms;
    }
}

void registrations::end() {
    for (auto const& one : all)
        one->end();
}

bool registrations::all_hold() const {
    return !all.empty() && std::ranges::all_of(all, [](auto const& one) { return one->holds(); });
}

}  // namespace fxsphone
