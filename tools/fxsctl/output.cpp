#include "tools/fxsctl/output.h"

#include <array>
#include <chrono>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/rtcp/show.h"

namespace fxsctl {
namespace {

struct value_text {
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(bool flag) const { return flag ? "yes" : "no"; }
    std::string operator()(std::string const& text) const { return protocol::quoted(text); }
};

/// What print() writes as JSON, without the time.
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

/// One line without its end; `time` may be empty.
std::string json_line(nlohmann::ordered_json object, std::string const& time) {
    if (!time.empty())
        object["time"] = time;
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

constexpr unsigned indent = 4;

std::string names(rtcp_reading const& reading) {
    std::string list;
    for (rtcp_view::packet const& one : reading.packets)
        if (one.type != 0)
            list += (list.empty() ? "" : " ") + rtcp_view::type_name(one.type);
    return list;
}

/// The usual description; what it says of an encrypted packet it knows from its first header only.
protocol::description described(protocol::rtcp_copy const& copy, rtcp_reading const& reading) {
    protocol::description d = protocol::describe(copy);
    for (protocol::described_field& field : d.fields)
        if (field.name == "packets" && reading.readable())
            field.value = names(reading);
    d.fields.push_back({"srtcp", std::string(reading.srtcp)});
    return d;
}

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
        std::cout << json_line(json_object(from, message), time) << std::endl;
        return;
    }
    char const* arrow = from == origin::command ? " > " : " < ";
    std::cout << (stamped ? time + arrow : "") << text_line(message) << std::endl;
}

void print_rtcp(settings const& global, protocol::rtcp_copy const& copy, rtcp_reading const& reading, bool stamped) {
    protocol::description d = described(copy, reading);
    if (!global.json) {
        if (reading.readable())
            std::erase_if(d.fields, [](auto const& field) { return field.name == "data"; });
        print(global, origin::report, d, stamped);
        std::cout << rtcp_view::to_text(reading.packets, indent) << std::flush;
        return;
    }
    nlohmann::ordered_json line = json_object(origin::report, d);
    if (reading.plain != copy.packet)
        line["plain"] = protocol::to_hex(reading.plain);
    line["decoded"] = rtcp_view::to_json(reading.packets);
    std::cout << json_line(std::move(line), stamped ? time_stamp() : "") << std::endl;
}

void print_quality(settings const& global, rtcp_view::quality_tracker const& tracker) {
    std::vector<rtcp_view::call_quality> const calls = tracker.calls();
    if (!global.json) {
        std::cout << (calls.empty() ? "no RTCP was copied: calls need an identifier\n" : rtcp_view::to_table(calls))
                  << std::flush;
        return;
    }
    for (rtcp_view::call_quality const& call : calls) {
        nlohmann::ordered_json line = json_object(origin::result, {"quality", {}});
        line.update(rtcp_view::to_json(call));
        std::cout << json_line(std::move(line), "") << std::endl;
    }
}

}  // namespace fxsctl
