// The quality of calls for people and for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/rtcp/call_quality.h"

namespace rtcp_view {

// One flat object; docs/man/fxsctl.1 explains the names. What nobody reported is null.
nlohmann::ordered_json to_json(call_quality const& call);

// A table with a column for each call; the rows are those of to_json() that are known for at least one call. Empty without calls.
std::string to_table(std::vector<call_quality> const& calls);

}  // namespace rtcp_view
