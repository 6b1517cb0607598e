#include "phone/registration.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace fxsphone {

namespace {

constexpr std::uint64_t second_ms = 1000;

/// libre closes a connection on which nothing has come in for 900 s; a refresh brings something.
constexpr std::uint64_t connection_refresh_ms = 800 * second_ms;

/// libre reports the end of a connection to those who keep it alive, and pings it for them so often. A registrar that
/// takes no part in RFC 5626 need not answer pings, so none is to come.
constexpr std::uint32_t never_s = 4'000'000;

}  // namespace

int answer_challenge(char** user, char** password, char const*, void* arg) {
    auto const* const login = static_cast<credentials const*>(arg);
    if (login->password.empty())
        return EAUTH;
    int const failed = str_dup(user, login->user.c_str());
    return failed != 0 ? failed : str_dup(password, login->password.c_str());
}

std::uint64_t retry_after_ms(unsigned failures) {
    std::uint64_t const longest_s = std::min<std::uint64_t>(1800, 30u << std::min(failures, 6u));
    return longest_s * (500 + rand_u16() % 501);
}

/// What libre calls; `arg` is the registration.
struct registration::handlers {
    static registration& of(void* arg) { return *static_cast<registration*>(arg); }

    static void due(void* arg) { of(arg).begin(); }
    static void keep_alive_due(void* arg) { of(arg).keep_alive(); }
    static void lost(int, void* arg) { of(arg).lost(); }

    static int write_contact(sip_transp transport, sa const* own, sa const*, mbuf* out, void* arg) {
        registration& self = of(arg);
        char* address = nullptr;
        re_sdprintf(&address, "sip:%s@%J%s", self.telephone.user.c_str(), own, sip_transp_param(transport));
        self.contact = address == nullptr ? "" : address;
        mem_deref(address);
        return mbuf_printf(out, "Contact: <%s>;expires=%u%s\r\n", self.contact.c_str(), self.expires_s,
                           self.contact_parameters.c_str());
    }

    static void answered(int error, sip_msg const* response, void* arg) {
        registration& self = of(arg);
        if (error != 0 || response == nullptr)
            self.failed(std::strerror(error));
        else if (response->scode < 200 || self.tries_again(response))
            return;
        else if (response->scode < 300)
            self.taken(response);
        if (self.ending)
            self.leave();
    }

    static bool is_own(sip_hdr const* header, sip_msg const*, void* arg) {
        sip_addr one;
        return sip_addr_decode(&one, &header->val) == 0 &&
               pl_strcmp(&one.auri, static_cast<registration const*>(arg)->contact.c_str()) == 0;
    }
};

registration::registration(sip* stack, telephone_settings const& who, std::string const& instance,
                           std::uint64_t first_after_ms)
    : telephone(who),
      registrar(*who.registrar),
      uri(registrar.uri_of(registrar.domain)),
      transactions(stack),
      expires_s(static_cast<std::uint32_t>(registrar.expires_s)) {
    if (registrar.outbound)
        contact_parameters = ";+sip.instance=\"<urn:uuid:" + instance + ">\";reg-id=1";
    tmr_init(&begin_timer);
    tmr_init(&keep_alive_timer);
    std::string const address = "sip:" + telephone.user + "@" + registrar.domain;
    std::string const proxy = registrar.uri_of(registrar.proxy);
    char const* route[] = {proxy.c_str()};
    sip_dialog_alloc(&dialog, uri.c_str(), address.c_str(), nullptr, address.c_str(), route,
                     registrar.proxy.empty() ? 0 : 1);
    again_after(first_after_ms);
}

registration::~registration() {
    tmr_cancel(&begin_timer);
    tmr_cancel(&keep_alive_timer);
    mem_deref(flow);
    mem_deref(under_way);
    mem_deref(dialog);
    if (ending)
        mem_deref(transactions);
}

// Requests and their answers

void registration::again_after(std::uint64_t wait_ms) {
    tmr_start(&begin_timer, wait_ms, handlers::due, this);
}

void registration::begin() {
    sip_loopstate_reset(&loops);
    login.forget();
    send();
}

void registration::send() {
    std::string const headers =
        login.headers("REGISTER", uri) + (registrar.outbound ? "Supported: gruu, outbound, path\r\n" : "");
    int const error =
        sip_drequestf(&under_way, transactions, true, "REGISTER", dialog, 0, nullptr, handlers::write_contact,
                      handlers::answered, this, "%sContent-Length: 0\r\n\r\n", headers.c_str());
    if (error != 0)
        failed(std::strerror(error));
}

void registration::taken(sip_msg const* response) {
    std::uint32_t const time_s = granted_s(response);
    if (ending || time_s == 0) {
        registered = expires_s != 0 && time_s != 0;
        if (!ending)
            failed("it grants no time");
        return;
    }
    if (!std::exchange(registered, true))
        registered_ms = tmr_jiffies();
    far = response->src;
    transport = response->tp;
    watch_flow(response);
    std::uint64_t const refresh_ms = time_s * (second_ms * 9 / 10);
    again_after(transport == SIP_TRANSP_UDP ? refresh_ms : std::min(refresh_ms, connection_refresh_ms));
    say("registered at " + registrar.domain + " for " + std::to_string(time_s) + " s");
}

std::uint32_t registration::granted_s(sip_msg const* response) const {
    sip_hdr const* const own =
        sip_msg_hdr_apply(response, true, SIP_HDR_CONTACT, handlers::is_own, const_cast<registration*>(this));
    sip_addr address;
    pl seconds;
    if (own != nullptr && sip_addr_decode(&address, &own->val) == 0 &&
        msg_param_decode(&address.params, "expires", &seconds) == 0)
        return pl_u32(&seconds);
    return pl_isset(&response->expires) ? pl_u32(&response->expires) : expires_s;
}

/// true: there is nothing to say of this response, another request is on its way.
bool registration::tries_again(sip_msg const* response) {
    std::string reason = std::to_string(response->scode) + " " + text_of(response->reason);
    if (response->scode < 300)
        return false;
    sip_hdr const* const least = sip_msg_hdr(response, SIP_HDR_MIN_EXPIRES);
    if (!sip_request_loops(&loops, response->scode)) {
        if (response->scode == 401 || response->scode == 407) {
            std::string const problem = login.take(response, telephone.login);
            if (problem.empty()) {
                send();
                return true;
            }
            reason += ", " + problem;
        }
        if (response->scode == 423 && least != nullptr && !ending && pl_u32(&least->val) > expires_s) {
            expires_s = pl_u32(&least->val);
            send();
            return true;
        }
    }
    failed(reason);
    return false;
}

// What goes wrong

void registration::take_down() {
    // What has held for long does not count as one failure after the other (RFC 5626 section 4.5).
    constexpr std::uint64_t recovered_ms = 120 * second_ms;
    if (std::exchange(registered, false) && tmr_jiffies() - registered_ms >= recovered_ms)
        failures = 0;
    tmr_cancel(&keep_alive_timer);
    flow = static_cast<sip_keepalive*>(mem_deref(flow));
}

void registration::failed(std::string const& reason) {
    take_down();
    if (ending)
        return;
    say("not registered at " + registrar.domain + ": " + reason);
    again_after(retry_after_ms(++failures));
}

/// A request that is on its way will tell.
void registration::lost() {
    if (under_way != nullptr)
        return;
    take_down();
    say("not registered at " + registrar.domain + ": the connection is lost");
    again_after(retry_after_ms(failures++));
}

// The end

void registration::end() {
    ending = true;
    mem_ref(transactions);
    tmr_cancel(&begin_timer);
    if (under_way == nullptr)
        leave();
}

/// With nothing on its way: one request more, if the registrar knows of us.
void registration::leave() {
    bool const known = registered;
    take_down();
    if (std::exchange(expires_s, 0) != 0 && known)
        begin();
    if (under_way == nullptr && std::exchange(ending, false))
        mem_deref(transactions);
}

// The way to it

void registration::watch_flow(sip_msg const* response) {
    bool const outbound = sip_msg_hdr_has_value(response, SIP_HDR_REQUIRE, "outbound");
    sip_hdr const* const timer = sip_msg_hdr(response, SIP_HDR_FLOW_TIMER);
    std::uint32_t const interval_s = !outbound ? never_s : timer == nullptr ? 0 : pl_u32(&timer->val);
    if (flow == nullptr && (outbound || transport != SIP_TRANSP_UDP))
        sip_keepalive_start(&flow, transactions, response, interval_s, handlers::lost, this);
    if (tcp_conn* const connection = transport == SIP_TRANSP_UDP ? nullptr : sip_msg_tcpconn(response)) {
        unsigned const silent_ms = 30'000;  // unacknowledged for so long: lost, though nobody has said so
        setsockopt(tcp_conn_fd(connection), IPPROTO_TCP, TCP_USER_TIMEOUT, &silent_ms, sizeof silent_ms);
    }
    if (!outbound)  // libre keeps such a flow alive itself
        keep_alive_later();
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
    tmr_start(&keep_alive_timer, wait_ms, handlers::keep_alive_due, this);
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
