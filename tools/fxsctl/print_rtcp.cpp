#include "tools/fxsctl/print_rtcp.h"

#include <iostream>

#include "tools/fxsctl/json_object.h"
#include "tools/rtcp/show.h"

namespace fxsctl {
namespace {

constexpr unsigned indent = 4;

std::string names(rtcp_reading const& reading) {
    std::string list;
    for (rtcp_view::packet const& one : reading.packets)
        if (one.type != 0)
            list += (list.empty() ? "" : " ") + rtcp_view::type_name(one.type);
    return list;
}

// The usual description; what it says of an encrypted packet it knows from its first header only.
protocol::description described(protocol::rtcp_copy const& copy, rtcp_reading const& reading) {
    protocol::description d = protocol::describe(copy);
    for (protocol::described_field& field : d.fields)
        if (field.name == "packets" && reading.readable())
            field.value = names(reading);
    d.fields.push_back({"srtcp", std::string(reading.srtcp)});
    return d;
}

}  // namespace

void print_rtcp(settings const& global, protocol::rtcp_copy const& copy, rtcp_reading const& reading,
                bool stamped) {
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

}  // namespace fxsctl
