#include "tools/fxsline/driver_links.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tools/protocol/bytes.h"

namespace fxsline {

std::string driver_links::create(links_config config) {
    script = std::move(config.script);
    std::ranges::stable_sort(script, {}, &scripted_text::time_ms);
    std::string error = config.pipe.empty() ? "" : pipe.create(config.pipe);
    if (error.empty() && !config.signal.empty())
        error = signalling.create(config.signal);
    return error;
}

void driver_links::tick() {
    uint64_t const now_ms = bank.ticks() * tick_ms;
    for (; next_text < script.size() && script[next_text].time_ms <= now_ms; next_text++)
        say(script[next_text].bytes);
}

int driver_links::say(std::string_view bytes) {
    int const error = pipe.send(bytes);
    if (error == 0) {
        bank.report_link(event_kind::driver_line, std::string(bytes));
    } else {
        bank.report_link(event_kind::driver_line_refused,
                         error == EAGAIN ? "the process reads nothing, the pipe is full" : "too long");
    }
    return error;
}

int driver_links::signal(std::string_view hex) {
    auto const bytes = protocol::from_hex(hex);
    if (!bytes || bytes->empty()) {
        bank.report_link(event_kind::signal_refused, "not hexadecimal text");
        return EINVAL;
    }
    size_t const sent = signalling.send(*bytes);
    if (sent > 0)
        bank.report_link(event_kind::signal_to_process, protocol::to_hex(std::span(*bytes).first(sent)));
    if (sent < bytes->size())
        bank.report_link(event_kind::signal_refused, "the process reads nothing, the device is full");
    return sent == bytes->size() ? 0 : EAGAIN;
}

void driver_links::receive_signal() {
    auto const bytes = signalling.receive();
    if (!bytes.empty())
        bank.report_link(event_kind::signal_from_process, protocol::to_hex(bytes));
}

}  // namespace fxsline
