#include "phone/registration.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace fxsphone {

namespace {

/// RFC 5626 section 4.5, with the random part of libre's own attempts.
std::uint64_t retry_after_ms(unsigned failures) {
    std::uint64_t const longest_s = std::min<std::uint64_t>(1800, 30u << std::min(failures, 6u));
    return longest_s * (500 + rand_u16() % 501);
}

std::string reason(int error, sip_msg const* response) {
    if (error == ENOSYS)
        return "it asks for another digest than MD5";
    if (error != 0 || response == nullptr)
        return std::strerror(error);
    return std::to_string(response->scode) + " " + text_of(response->reason);
}

}  // namespace

int answer_challenge(char** user, char** password, char const*, void* arg) {
    auto const* const login = static_cast<credentials const*>(arg);
    if (login->password.empty())
        return EAUTH;
    int const failed = str_dup(user, login->user.c_str());
    return failed != 0 ? failed : str_dup(password, login->password.c_str());
}

registration::registration(sip* stack, telephone_settings const& who, std::string const& device_instance,
                           std::uint64_t first_after_ms)
    : telephone(who), registrar(*who.registrar), instance(device_instance), transactions(stack) {
    tmr_init(&begin_timer);
    tmr_init(&keep_alive_timer);
    tmr_start(
        &begin_timer, first_after_ms, [](void* arg) { static_cast<registration*>(arg)->begin(); }, this);
}

registration::~registration() {
    tmr_cancel(&begin_timer);
    tmr_cancel(&keep_alive_timer);
    mem_deref(client);
}

void registration::begin() {
    std::string const address = "sip:" + telephone.user + "@" + registrar.domain;
    std::string const parameters = "+sip.instance=\"<urn:uuid:" + instance + ">\"";
    std::string const proxy = registrar.uri_of(registrar.proxy);
    char const* route[] = {proxy.c_str()};
    auto const answered = [](int error, sip_msg const* response, void* arg) {
        static_cast<registration*>(arg)->heard(error, response);
    };
    int const failed = sipreg_register(
        &client, transactions, registrar.uri_of(registrar.domain).c_str(), address.c_str(), nullptr, address.c_str(),
        static_cast<std::uint32_t>(registrar.expires_s), telephone.user.c_str(), route, registrar.proxy.empty() ? 0 : 1,
        registrar.outbound ? 1 : 0, answer_challenge, const_cast<credentials*>(&telephone.login), false, answered, this,
        registrar.outbound ? parameters.c_str() : nullptr, nullptr);
    if (failed == 0)
        return;
    say("not registered at " + registrar.domain + ": " + std::strerror(failed));
    tmr_start(
        &begin_timer, retry_after_ms(++failures), [](void* arg) { static_cast<registration*>(arg)->begin(); }, this);
}

void registration::heard(int error, sip_msg const* response) {
    if (!holds()) {
        tmr_cancel(&keep_alive_timer);
        say("not registered at " + registrar.domain + ": " + reason(error, response));
        return;
    }
    far = response->src;
    transport = response->tp;
    tmr_cancel(&keep_alive_timer);
    if (!sip_msg_hdr_has_value(response, SIP_HDR_REQUIRE, "outbound"))  // libre keeps such a flow alive itself
        keep_alive_later();
    say("registered at " + registrar.domain + " for " + std::to_string(sipreg_proxy_expires(client)) + " s");
}

void registration::say(std::string const& news) {
    if (news == said)
        return;
    said = news;
    std::fprintf(stderr, "line %d: %s\n", telephone.number, news.c_str());
}

/// After 80 to 100 % of the time (RFC 5626 section 4.4), so that telephones drift apart.
void registration::keep_alive_later() {
    if (registrar.keep_alive_s == 0)
        return;
    std::uint64_t const wait_ms = static_cast<std::uint64_t>(registrar.keep_alive_s) * (800 + rand_u16() % 201);
    tmr_start(
        &keep_alive_timer, wait_ms, [](void* arg) { static_cast<registration*>(arg)->keep_alive(); }, this);
}

/// Two line ends, which every SIP transport ignores (RFC 3261 section 7.5, RFC 5626 section 3.5.1).
void registration::keep_alive() {
    mbuf* const line_ends = mbuf_alloc(4);
    mbuf_write_str(line_ends, "\r\n\r\n");
    mbuf_set_pos(line_ends, 0);
    sip_send(transactions, nullptr, transport, &far, line_ends);
    mem_deref(line_ends);
    keep_alive_later();
}

}  // namespace fxsphone
