#include "phone/call_record.h"

namespace fxsphone {

std::string to_json(call_record const& call, std::int64_t now_ms) {
    nlohmann::ordered_json json{{"line", call.line}};
    json["direction"] = call.direction == sip_call_direction::outgoing ? "out" : "in";
    json["far"] = call.far;
    json["answered"] = call.answered_ms != 0;
    if (call.lift_to_tone_ms != 0)
        json["lift_to_tone_ms"] = call.lift_to_tone_ms;
    if (call.rang_ms != 0 && call.last_key_ms != 0)
        json["last_key_to_ringing_ms"] = call.rang_ms - call.last_key_ms;
    if (call.rang_ms != 0)
        json["post_dial_delay_ms"] = call.rang_ms - call.begun_ms;
    if (call.answered_ms != 0) {
        json["setup_ms"] = call.answered_ms - call.begun_ms;
        json["talk_ms"] = now_ms - call.answered_ms;
        json["codec"] = call.codec;
    }
    if (call.media_lost)
        json["media_lost"] = true;
    if (call.code != 0)
        json["sip_code"] = call.code;
    json["ended_by"] = call.ended_by.empty() ? "telephone" : call.ended_by;
    if (call.answered_ms != 0)
        json["quality"] = call.quality;
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace fxsphone
