// What the tools read from the network and from call control's socket. Nothing may throw, and what they make of it must
// agree with what the process itself makes of it.

#include "control/command_fields.h"
#include "fuzz/fuzz_target.h"
#include "media/rtcp_packet.h"
#include "tools/protocol/description.h"
#include "tools/protocol/tlv.h"
#include "tools/rtcp/call_quality.h"
#include "tools/rtcp/packet.h"
#include "tools/rtcp/show.h"

namespace {

protocol::byte_view view(str const& data) {
    return {data.cbuffer(), static_cast<std::size_t>(data.length())};
}

}  // namespace

/// The input is a compound packet.
FUZZ_TARGET(tools_rtcp) {
    str const compound = input.rest();
    auto const packets = rtcp_view::parse_compound(view(compound));
    FUZZ_CHECK(packets.empty() == compound.empty());
    std::size_t walked = 0;
    rtcp::for_each_packet(compound, [&](int type, str const& packet) {
        if (walked < packets.size() && packet[0] >> 6 == 2 && packets[walked].problem.empty())
            FUZZ_CHECK(packets[walked].type == type);
        walked++;
    });
    auto const replace = nlohmann::ordered_json::error_handler_t::replace;  // as the tools do
    FUZZ_CHECK(!rtcp_view::to_json(packets).dump(-1, ' ', false, replace).empty());
    FUZZ_CHECK(rtcp_view::to_text(packets, 2).empty() == packets.empty());
    rtcp_view::looks_encrypted(view(compound));
}

/// The input is a datagram, as a command and as a report.
FUZZ_TARGET(tools_protocol) {
    str const datagram = input.rest();
    protocol::tlv_list const list = protocol::split_tlvs(view(datagram));
    std::size_t elements = 0;
    for_each_field(datagram, [&](tlv const& element) {
        FUZZ_CHECK(elements < list.elements.size() && list.elements[elements].tag == element.tag);
        protocol::bytes const& value = list.elements[elements++].value;
        FUZZ_CHECK(str(value.data(), static_cast<int>(value.size())) == element.value);
    });
    FUZZ_CHECK(elements == list.elements.size());
    auto const reports = protocol::parse_reports(view(datagram));
    FUZZ_CHECK(reports.size() >= std::max<std::size_t>(elements, 1));
    for (protocol::report const& report : reports)
        FUZZ_CHECK(!protocol::describe(report).name.empty());
    FUZZ_CHECK(protocol::describe_commands(view(datagram)).size() >= elements);
}
