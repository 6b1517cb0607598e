#include <array>
#include <nlohmann/json.hpp>

#include "tools/fxsctl/output.h"

namespace fxsctl {

std::string json_line(origin from, const protocol::description& message, const std::string& time) {
    static constexpr std::array<const char*, 3> origins{"report", "command", "result"};
    nlohmann::ordered_json line;
    line[origins[static_cast<std::size_t>(from)]] = message.name;
    for (const protocol::described_field& field : message.fields) {
        std::visit(
            [&](const auto& value) {
                if (!line.contains(field.name)) {
                    line[field.name] = value;
                } else if (line[field.name].is_array()) {
                    line[field.name].push_back(value);
                } else {  // a sub-field that stands several times becomes an array
                    line[field.name] = {line[field.name], value};
                }
            },
            field.value);
    }
    if (!time.empty()) {
        line["time"] = time;
    }
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace fxsctl
