#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "phone/settings.h"

namespace fxsphone {

/// The settings, or what is wrong with them: "NAME:LINE:COLUMN: what was found and what was expected".
struct configuration {
    std::optional<phone_settings> settings;
    std::string problem;
};

/// Reads a configuration file's text (TOML 1.0; fxsphone(1) lists the keys). `name` stands in the complaint.
configuration read_configuration(std::string_view text, std::string const& name);

}  // namespace fxsphone
