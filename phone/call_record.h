#pragma once

#include <cstdint>
#include <string>

namespace fxsphone {

enum class sip_call_direction { outgoing, incoming };

/// What is written of a call at its end. Times are of the monotonic clock in ms, 0: it did not come to that.
struct call_record {
    int line = 0;
    sip_call_direction direction = sip_call_direction::outgoing;
    std::string far;
    std::string codec;
    std::int64_t begun_ms = 0;  ///< INVITE sent or received
    std::int64_t rang_ms = 0;   ///< of an outgoing one: the far end said so
    std::int64_t answered_ms = 0;
    int code = 0;          ///< of the last SIP response, 0: none
    std::string ended_by;  ///< "far", "network", "media"; empty: this telephone
};

/// A JSON object in one line, without line end.
std::string to_json(call_record const& call, std::int64_t now_ms);

}  // namespace fxsphone
