#include "phone/call_media.h"

#include "tools/rtcp/show.h"

namespace fxsphone {

void call_media::rtcp(bool received, fxsmedia::byte_view packet, std::int64_t now_ms) {
    protocol::byte_view const bytes(packet.data(), packet.size());
    rtcp_view::rtcp_observation seen;
    seen.call_id = "call";
    seen.received = received;
    seen.readable = !received || !rtcp_view::looks_encrypted(bytes);
    seen.time_ms = now_ms;
    seen.packets = rtcp_view::parse_compound(bytes);
    tracker.add(seen);
    if (received)
        return;
    for (rtcp_view::packet const& one : seen.packets) {
        auto const* const report = std::get_if<rtcp_view::report>(&one.body);
        if (report == nullptr || report->blocks.empty())
            continue;
        if (sequence != report->blocks[0].highest_sequence)
            heard_ms = now_ms;
        sequence = report->blocks[0].highest_sequence;
    }
}

nlohmann::ordered_json call_media::quality() const {
    auto const calls = tracker.calls();
    if (calls.empty())
        return nullptr;
    nlohmann::ordered_json all = rtcp_view::to_json(calls.back());
    all.erase("call");
    all.erase("call_id");
    return all;
}

}  // namespace fxsphone
