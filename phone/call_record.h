#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace fxsphone {

/// Who has begun a call: outgoing is from the telephone.
enum class sip_call_direction { outgoing, incoming };

/// What is written of a call at its end. Times are of the monotonic clock in ms, 0: it did not come to that.
struct call_record {
    int line = 0;
    sip_call_direction direction = sip_call_direction::outgoing;
    std::string far;            ///< address of the far end, "sip:user@host"
    std::string codec;          ///< that is sent, as the configuration names it; empty: none was agreed on
    std::int64_t begun_ms = 0;  ///< INVITE sent or received
    std::int64_t rang_ms = 0;   ///< of an outgoing one: the far end said so
    std::int64_t answered_ms = 0;
    std::int64_t lift_to_tone_ms = 0;  ///< of the receiver, before the first call
    std::int64_t last_key_ms = 0;      ///< when it was pressed
    bool media_lost = false;           ///< nothing was received for too long
    nlohmann::ordered_json quality;    ///< null: nothing is known
    int code = 0;                      ///< of the last SIP response, 0: none
    std::string ended_by;              ///< "far", "network", "media"; empty: this telephone
};

/// A JSON object in one line, without line end; fxsphone(1) names its fields. What is not known is left out.
std::string to_json(call_record const& call, std::int64_t now_ms);

}  // namespace fxsphone
