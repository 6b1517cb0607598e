#include <array>

#include "tools/fxsctl/json_object.h"

namespace fxsctl {

nlohmann::ordered_json json_object(origin from, protocol::description const& message) {
    static constexpr std::array<char const*, 3> origins{"report", "command", "result"};
    nlohmann::ordered_json line;
    line[origins[static_cast<std::size_t>(from)]] = message.name;
    for (protocol::described_field const& field : message.fields) {
        std::visit(
            [&](auto const& value) {
                if (!line.contains(field.name))
                    line[field.name] = value;
                else if (line[field.name].is_array())
                    line[field.name].push_back(value);
                else  // a sub-field that stands several times becomes an array
                    line[field.name] = {line[field.name], value};
            },
            field.value);
    }
    return line;
}

std::string json_line(nlohmann::ordered_json object, std::string const& time) {
    if (!time.empty())
        object["time"] = time;
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string json_line(origin from, protocol::description const& message, std::string const& time) {
    return json_line(json_object(from, message), time);
}

}  // namespace fxsctl
