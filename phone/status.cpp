#include "phone/status.h"

namespace fxsphone {

namespace {

char const* name_of(line::state now) {
    switch (now) {
        case line::state::on_hook: return "on_hook";
        case line::state::ringing: return "ringing";
        case line::state::ringing_back: return "ringing_back";
        case line::state::dialling: return "dial_tone";
        case line::state::collecting: return "dialling";
        case line::state::calling: return "calling";
        case line::state::alerting: return "alerting";
        case line::state::talking: return "talking";
        case line::state::transferring:
        case line::state::handing_over: return "transferring";
        case line::state::refused: return "refused";
        case line::state::left_off: return "left_off_hook";
        case line::state::howling: return "howling";
    }
    return "";
}

nlohmann::ordered_json row_of(telephone const& one, std::int64_t now_ms) {
    nlohmann::ordered_json row{{"line", one.settings.number}, {"user", one.settings.user}};
    row["state"] = name_of(one.state.now_in());
    row["message_waiting"] = one.state.has_messages();
    row["do_not_disturb"] = one.state.features().do_not_disturb;
    row["forward_always"] = one.state.features().forward_always;
    row["calls"] = nlohmann::ordered_json::array();
    for (leg const& each : one.legs)
        if (each.record)
            row["calls"].push_back({{"far", each.record->far},
                                    {"codec", each.record->codec},
                                    {"answered", each.record->answered_ms != 0},
                                    {"age_ms", now_ms - each.record->begun_ms},
                                    {"media_lost", each.record->media_lost}});
    return row;
}

}  // namespace

std::string status_of(telephone_list const& telephones, bool process_connected, std::int64_t now_ms) {
    nlohmann::ordered_json all{{"media_process", process_connected}, {"lines", nlohmann::ordered_json::array()}};
    for (auto const& one : telephones)
        all["lines"].push_back(row_of(*one, now_ms));
    return all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace fxsphone
