#include "tools/fxsctl/quality.h"

#include <chrono>
#include <iostream>

#include "tools/fxsctl/json_object.h"
#include "tools/rtcp/show_quality.h"

namespace fxsctl {

std::int64_t now_ms() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

rtcp_view::rtcp_observation observation(const protocol::rtcp_copy& copy, const rtcp_reading& reading,
                                        std::int64_t time_ms) {
    return {copy.call, copy.call_id, copy.received, reading.readable(), time_ms, reading.packets};
}

void print_quality(const settings& global, const rtcp_view::quality_tracker& tracker) {
    const std::vector<rtcp_view::call_quality> calls = tracker.calls();
    if (!global.json) {
        std::cout << (calls.empty() ? "no RTCP was copied: calls need an identifier\n"
                                    : rtcp_view::to_table(calls))
                  << std::flush;
        return;
    }
    for (const rtcp_view::call_quality& call : calls) {
        nlohmann::ordered_json line = json_object(origin::result, {"quality", {}});
        line.update(rtcp_view::to_json(call));
        std::cout << json_line(std::move(line), "") << std::endl;
    }
}

}  // namespace fxsctl
