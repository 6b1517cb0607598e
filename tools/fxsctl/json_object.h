// Messages as JSON objects, for output that is more than a list of fields.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/fxsctl/output.h"

namespace fxsctl {

// What json_line() of output.h prints, without the time.
nlohmann::ordered_json json_object(origin from, protocol::description const& message);

// One line without line end; `time` as there.
std::string json_line(nlohmann::ordered_json object, std::string const& time);

}  // namespace fxsctl
