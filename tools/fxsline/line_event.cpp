#include "tools/fxsline/line_event.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/protocol/bytes.h"

namespace fxsline {

namespace {

enum class carries { nothing, number, number_and_answer, text, bytes };

struct kind_names {
    char const* json;
    char const* text;
    carries what;
    char const* source = nullptr;  ///< of events that concern no line
};

constexpr kind_names names[] = {
    {"device_opened", "device opened", carries::nothing},
    {"device_closed", "device closed", carries::nothing},
    {"led_on", "call LED on", carries::nothing},
    {"led_off", "call LED off", carries::nothing},
    {"tx_clear", "transmit clear, samples discarded:", carries::number},
    {"base_command", "base command", carries::number_and_answer},
    {"say", "says", carries::text},
    {"say_refused", "can't say:", carries::text},
    {"speech_ended", "speech ended", carries::nothing},
    {"overrun", "overrun", carries::nothing},
    {"underrun", "underrun", carries::nothing},
    {"ring_text", "ring device:", carries::text},
    {"driver_line", "says", carries::bytes, "driver"},
    {"driver_line_refused", "can't say:", carries::text, "driver"},
    {"signal_from_process", "from the process:", carries::text, "signal"},
    {"signal_to_process", "to the process:", carries::text, "signal"},
    {"signal_refused", "can't send:", carries::text, "signal"},
};

kind_names const& names_of(event_kind kind) {
    return names[static_cast<size_t>(kind)];
}

}  // namespace

std::string event_text(line_event const& event) {
    kind_names const& kind = names_of(event.kind);
    std::string const source = kind.source != nullptr ? kind.source : "line " + std::to_string(event.line);
    char head[64];
    std::snprintf(head, sizeof head, "%8llu ms  %s  ", static_cast<unsigned long long>(event.time_ms), source.c_str());
    std::string text = std::string(head) + kind.text;
    switch (kind.what) {
        case carries::nothing: return text;
        case carries::number: return text + " " + std::to_string(event.number);
        case carries::number_and_answer:
            return text + " " + std::to_string(event.number) + ", answer " + std::to_string(event.answer);
        case carries::text: return text + " " + event.text;
        case carries::bytes: return text + " " + protocol::quoted(event.text);
    }
    return text;
}

std::string event_json(line_event const& event) {
    kind_names const& kind = names_of(event.kind);
    nlohmann::ordered_json json{{"time_ms", event.time_ms}};
    if (kind.source == nullptr)
        json["line"] = event.line;
    json["event"] = kind.json;
    if (kind.what == carries::number || kind.what == carries::number_and_answer)
        json["number"] = event.number;
    if (kind.what == carries::number_and_answer)
        json["answer"] = event.answer;
    if (kind.what == carries::text || kind.what == carries::bytes)
        json["text"] = event.text;
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace fxsline
