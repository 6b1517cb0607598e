// Messages as one line of text, so that they can be compared at a glance.
#pragma once

#include "tools/protocol/description.h"

inline std::string summary(const protocol::description& message) {
    std::string text = message.name;
    for (const protocol::described_field& one : message.fields) {
        text += " " + one.name + "=";
        const auto* const words = std::get_if<std::string>(&one.value);
        const auto* const number = std::get_if<std::int64_t>(&one.value);
        text += words ? *words : std::to_string(number ? *number : std::get<bool>(one.value));
    }
    return text;
}
