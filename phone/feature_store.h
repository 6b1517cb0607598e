#pragma once

#include <map>
#include <string>

#include "phone/feature_codes.h"

namespace fxsphone {

/// By the user part of the telephones' addresses.
using features_by_user = std::map<std::string, line_features>;

/// A JSON file. What it does not say, or says in another way, is as if it had never been chosen; no file, nothing
/// chosen.
features_by_user read_features(std::string const& path);

/// Written beside the old file first, so that it is never half there. false: see errno.
bool write_features(std::string const& path, features_by_user const& all);

}  // namespace fxsphone
