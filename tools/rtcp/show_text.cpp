#include "tools/protocol/quoted.h"
#include "tools/rtcp/show.h"

namespace rtcp_view {
namespace {

using nlohmann::ordered_json;

bool is_list_of_objects(const ordered_json& value) {
    return value.is_array() && !value.empty() && value.front().is_object();
}

std::string value_text(const ordered_json& value) {
    if (value.is_null()) {
        return "-";
    }
    if (value.is_string()) {
        return protocol::quoted(value.get_ref<const std::string&>());
    }
    if (!value.is_array()) {
        return value.dump();
    }
    std::string list;
    for (const ordered_json& one : value) {
        list += (list.empty() ? "" : ",") + value_text(one);
    }
    return list;
}

// A packet or block starts with what it is; the elements of other lists are called like the list without its "s".
void add_lines(std::string& out, const ordered_json& object, const std::string& label, unsigned indent) {
    out += std::string(indent, ' ') + label;
    const char* separator = label.empty() ? "" : " ";
    for (const auto& [name, value] : object.items()) {
        if (is_list_of_objects(value) || (value.is_array() && value.empty())) {
            continue;
        }
        const bool is_kind = name == "type" || name == "block";
        out += separator + (is_kind ? "" : name + "=") + value_text(value);
        separator = " ";
    }
    out += '\n';
    for (const auto& [name, value] : object.items()) {
        for (std::size_t i = 0; is_list_of_objects(value) && i < value.size(); ++i) {
            const bool says_itself = value[i].contains("block");
            add_lines(out, value[i], says_itself ? "" : name.substr(0, name.size() - 1), indent + 2);
        }
    }
}

}  // namespace

std::string to_text(const std::vector<packet>& compound, unsigned indent) {
    std::string text;
    for (const packet& one : compound) {
        add_lines(text, to_json(one), "", indent);
    }
    return text;
}

}  // namespace rtcp_view
