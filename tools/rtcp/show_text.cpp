#include "tools/protocol/bytes.h"
#include "tools/rtcp/show.h"

namespace rtcp_view {
namespace {

using nlohmann::ordered_json;

bool is_list_of_objects(ordered_json const& value) {
    return value.is_array() && !value.empty() && value.front().is_object();
}

std::string value_text(ordered_json const& value) {
    if (value.is_null())
        return "-";
    if (value.is_string())
        return protocol::quoted(value.get_ref<std::string const&>());
    if (!value.is_array())
        return value.dump();
    std::string list;
    for (ordered_json const& one : value)
        list += (list.empty() ? "" : ",") + value_text(one);
    return list;
}

/// A packet or block starts with what it is; the elements of other lists are called like the list without its "s".
void add_lines(std::string& out, ordered_json const& object, std::string const& label, unsigned indent) {
    out += std::string(indent, ' ') + label;
    char const* separator = label.empty() ? "" : " ";
    for (auto const& [name, value] : object.items()) {
        if (is_list_of_objects(value) || (value.is_array() && value.empty()))
            continue;
        bool const is_kind = name == "type" || name == "block";
        out += separator + (is_kind ? "" : name + "=") + value_text(value);
        separator = " ";
    }
    out += '\n';
    for (auto const& [name, value] : object.items()) {
        for (std::size_t i = 0; is_list_of_objects(value) && i < value.size(); ++i) {
            bool const says_itself = value[i].contains("block");
            add_lines(out, value[i], says_itself ? "" : name.substr(0, name.size() - 1), indent + 2);
        }
    }
}

}  // namespace

std::string to_text(std::vector<packet> const& compound, unsigned indent) {
    std::string text;
    for (packet const& one : compound)
        add_lines(text, to_json(one), "", indent);
    return text;
}

}  // namespace rtcp_view
