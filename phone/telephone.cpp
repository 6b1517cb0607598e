#include "phone/telephone.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "phone/feature_store.h"

namespace fxsphone {

telephone_list::telephone_list(phone_settings const& chosen) : state_file(chosen.state_file) {
    auto const kept = state_file.empty() ? features_by_user() : read_features(state_file);
    for (telephone_settings const& one : chosen.telephones) {
        line_settings own = chosen.times;
        own.hide_number = one.hide_number;
        own.hot_line = one.hot_line;
        own.hot_line_ms = one.hot_line_ms;
        auto made = std::make_unique<telephone>(one, line(dial_plan(chosen.plan), own));
        if (auto const known = kept.find(one.user); known != kept.end())
            made->state.set_features(known->second);
        for (int i : {0, 1}) {
            made->legs[i].line = one.number;
            made->legs[i].channel = 2 * one.number + i;
        }
        all.push_back(std::move(made));
    }
}

telephone* telephone_list::of_line(int number) const {
    auto const found = std::ranges::find_if(all, [&](auto const& one) { return one->settings.number == number; });
    return found == all.end() ? nullptr : found->get();
}

telephone* telephone_list::of_user(std::string const& user) const {
    auto const found = std::ranges::find_if(all, [&](auto const& one) { return one->settings.user == user; });
    return found == all.end() ? nullptr : found->get();
}

leg* telephone_list::of_channel(int channel) const {
    telephone* const which = of_line(channel / 2);
    return which == nullptr ? nullptr : &which->legs[channel % 2];
}

leg* telephone_list::of_call(sip_call const& call) const {
    for (auto& one : all)
        for (leg& each : one->legs)
            if (each.call.get() == &call)
                return &each;
    return nullptr;
}

leg* telephone_list::of_dialog(dialog_id const& dialog) const {
    for (auto& one : all)
        for (leg& each : one->legs)
            if (each.call && each.record && each.call->id() == dialog)
                return &each;
    return nullptr;
}

void telephone_list::keep_features() const {
    if (state_file.empty())
        return;
    features_by_user chosen;
    for (auto const& one : all)
        chosen[one->settings.user] = one->state.features();
    if (!write_features(state_file, chosen))
        std::fprintf(stderr, "can't write %s: %s\n", state_file.c_str(), std::strerror(errno));
}

}  // namespace fxsphone
