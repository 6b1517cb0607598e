#include "tools/fxsctl/quality.h"

#include <chrono>
#include <iostream>

#include "tools/fxsctl/json_object.h"
#include "tools/rtcp/show_quality.h"

namespace fxsctl {

std::int64_t now_ms() {
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

rtcp_view::rtcp_observation observation(protocol::rtcp_copy const& copy, rtcp_reading const& reading,
                                        std::int64_t time_ms) {
    return {copy.call, copy.call_id, copy.received, reading.readable(), time_ms, reading.packets};
}

void print_quality(settings const& global, rtcp_view::quality_tracker const& tracker) {
    std::vector<rtcp_view::call_quality> const calls = tracker.calls();
    if (!global.json) {
        std::cout << (calls.empty() ? "no RTCP was copied: calls need an identifier\n"
                                    : rtcp_view::to_table(calls))
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
