#include <array>
#include <chrono>
#include <ctime>
#include <iostream>

#include "tools/fxsctl/output.h"
#include "tools/protocol/quoted.h"

namespace fxsctl {
namespace {

struct value_text {
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(bool flag) const { return flag ? "yes" : "no"; }
    std::string operator()(std::string const& text) const { return protocol::quoted(text); }
};

}  // namespace

std::string text_line(protocol::description const& message) {
    std::string line = message.name;
    for (protocol::described_field const& field : message.fields)
        line += " " + field.name + "=" + std::visit(value_text{}, field.value);
    return line;
}

std::string time_stamp() {
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    auto const ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    std::time_t const seconds = static_cast<std::time_t>(ms / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    std::string const fraction = std::to_string(1000 + ms % 1000);
    return std::string(text.data()) + "." + fraction.substr(1) + "Z";
}

void print(settings const& global, origin from, protocol::description const& message, bool stamped) {
    std::string const time = stamped ? time_stamp() : "";
    if (global.json) {
        std::cout << json_line(from, message, time) << std::endl;
        return;
    }
    char const* arrow = from == origin::command ? " > " : " < ";
    std::cout << (stamped ? time + arrow : "") << text_line(message) << std::endl;
}

}  // namespace fxsctl
