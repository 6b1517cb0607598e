#pragma once

#include "tools/protocol/description.h"

/// Messages as one line of text, so that they can be compared at a glance.

inline std::string summary(protocol::description const& message) {
    std::string text = message.name;
    for (protocol::described_field const& one : message.fields) {
        text += " " + one.name + "=";
        auto const* const words = std::get_if<std::string>(&one.value);
        auto const* const number = std::get_if<std::int64_t>(&one.value);
        text += words ? *words : std::to_string(number ? *number : std::get<bool>(one.value));
    }
    return text;
}
