#include "phone/session_timer.h"

#include <algorithm>

namespace fxsphone {

namespace {

struct session_expires {
    std::uint32_t seconds = 0;  ///< 0: there is none
    std::string refresher;      ///< "uac", "uas"; empty: it does not say
};

session_expires read(sip_msg const* message) {
    sip_hdr const* const header = sip_msg_hdr(message, SIP_HDR_SESSION_EXPIRES);
    if (header == nullptr)
        return {};
    pl const value = header->val;
    pl seconds = {}, refresher = {};
    if (re_regex(value.p, value.l, "[0-9]+", &seconds) != 0)
        return {};
    session_expires found{pl_u32(&seconds), ""};
    if (msg_param_decode(&value, "refresher", &refresher) == 0)
        found.refresher = text_of(refresher);
    return found;
}

std::uint32_t least_of(sip_msg const* message) {
    sip_hdr const* const header = sip_msg_hdr(message, SIP_HDR_MIN_SE);
    return header == nullptr ? 0 : pl_u32(&header->val);
}

bool knows_timers(sip_msg const* message) {
    return sip_msg_hdr_has_value(message, SIP_HDR_SUPPORTED, "timer");
}

}  // namespace

session_timer::session_timer(std::uint32_t expires_s, std::function<void()> by_us, std::function<void()> at_end)
    : wanted_s(expires_s), refresh(std::move(by_us)), expired(std::move(at_end)) {
    tmr_init(&due);
}

session_timer::~session_timer() {
    tmr_cancel(&due);
}

std::string session_timer::for_request() const {
    if (wanted_s == 0)
        return "";
    std::uint32_t const asked_s = std::max(interval_s == 0 ? wanted_s : interval_s, least_s);
    return "Supported: timer\r\nSession-Expires: " + std::to_string(asked_s) +
           (interval_s == 0 ? "" : ";refresher=uac") + "\r\nMin-SE: " + std::to_string(least_s) + "\r\n";
}

void session_timer::answered(sip_msg const* response) {
    session_expires const found = read(response);
    if (wanted_s == 0 || found.seconds == 0)
        return;
    interval_s = found.seconds;
    refreshes = found.refresher != "uas";
    begin();
}

bool session_timer::raised(sip_msg const* response) {
    std::uint32_t const least = least_of(response);
    if (wanted_s == 0 || least <= std::max(wanted_s, interval_s))
        return false;
    wanted_s = least;
    interval_s = interval_s == 0 ? 0 : least;
    return true;
}

bool session_timer::is_too_short(sip_msg const* request) const {
    session_expires const found = read(request);
    return wanted_s != 0 && found.seconds != 0 && found.seconds < least_s && knows_timers(request);
}

/// RFC 4028 section 9, table 2.
std::string session_timer::accept(sip_msg const* request) {
    if (wanted_s == 0)
        return "";
    session_expires const found = read(request);
    bool const by_far = found.seconds != 0 && knows_timers(request) && found.refresher != "uas";
    std::uint32_t const seconds = found.seconds != 0 ? found.seconds : std::max(wanted_s, least_of(request));
    interval_s = std::max(seconds, least_s);
    refreshes = !by_far;
    return "Session-Expires: " + std::to_string(interval_s) + ";refresher=" + (by_far ? "uac" : "uas") +
           "\r\nSupported: timer\r\n" + (by_far ? "Require: timer\r\n" : "");
}

void session_timer::take_over() {
    refreshes = true;
    begin();
}

/// RFC 4028 sections 7.2 and 10.
void session_timer::begin() {
    constexpr std::uint64_t second_ms = 1000;
    std::uint64_t const patience_s = interval_s - std::min<std::uint32_t>(32, interval_s / 3);
    auto const over = [](void* arg) {
        auto* const self = static_cast<session_timer*>(arg);
        bool const by_us = self->refreshes;
        auto const tell = by_us ? self->refresh : self->expired;
        if (by_us)
            self->begin();
        tell();
    };
    if (interval_s != 0)
        tmr_start(&due, refreshes ? interval_s * second_ms / 2 : patience_s * second_ms, over, this);
}

}  // namespace fxsphone
