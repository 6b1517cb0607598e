#include "phone/sip_agent.h"

#include "phone/libre.h"
#include "phone/sip_methods.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace fxsphone {

namespace {

constexpr std::uint32_t hash_buckets = 32;

void print_message(bool sent, sip_transp transport, sa const* from, sa const* to, std::uint8_t const* bytes,
                   std::size_t length, void*) {
    std::string const text = without_keys({reinterpret_cast<char const*>(bytes), length});
    re_fprintf(stderr, "%s %s %J -> %J\n%b\n", sent ? "sent" : "received", sip_transp_name(transport), from, to,
               text.data(), text.size());
}

/// The system's name servers; nullptr without any: then addresses have numbers only.
dnsc* system_names() {
    sa servers[4];
    std::uint32_t count = 4;
    dnsc* client = nullptr;
    if (dns_srv_get(nullptr, 0, servers, &count) == 0)
        dnsc_alloc(&client, nullptr, servers, count);
    return client;
}

}  // namespace

struct sip_agent::handlers {
    /// Refuses what cannot be a good request, whatever it is about; libre takes much that is not one. ACK has no
    /// answer, and what CANCEL requires does not count.
    static bool screen(sip_msg const* request, void* arg) {
        auto const& self = *static_cast<sip_agent*>(arg);
        sip* const stack = self.transactions;
        if (pl_strcmp(&request->met, "ACK") == 0)
            return false;
        bool const is_cancel = pl_strcmp(&request->met, "CANCEL") == 0;
        std::string const unknown = is_cancel ? "" : unknown_extensions(request, self.knows_timers);
        if (!is_whole(request))
            sip_reply(stack, request, 400, "Bad Request");
        else if (pl_strcasecmp(&request->uri.scheme, "sip") != 0 && pl_strcasecmp(&request->uri.scheme, "sips") != 0)
            sip_reply(stack, request, 416, "Unsupported URI Scheme");
        else if (!unknown.empty())
            sip_treplyf(nullptr, nullptr, stack, request, false, 420, "Bad Extension",
                        "Unsupported: %s\r\nContent-Length: 0\r\n\r\n", unknown.c_str());
        else
            return false;
        return true;
    }
    /// What every request has, once, and in keeping with the rest (RFC 3261 sections 8.1.1, 18.3 and 20).
    static bool is_whole(sip_msg const* request) {
        for (sip_hdrid const id : {SIP_HDR_TO, SIP_HDR_FROM, SIP_HDR_CALL_ID, SIP_HDR_CSEQ})
            if (sip_msg_hdr_count(request, id) != 1)
                return false;
        bool const has_length = pl_isset(&request->clen);
        return pl_cmp(&request->met, &request->cseq.met) == 0 && sip_msg_hdr_count(request, SIP_HDR_MAX_FORWARDS) < 2 &&
               sip_msg_hdr_count(request, SIP_HDR_CONTENT_LENGTH) < 2 &&
               (!has_length || (std::isdigit(static_cast<unsigned char>(*request->clen.p)) != 0 &&
                                pl_u32(&request->clen) <= mbuf_get_left(request->mb)));
    }
    static void invite(sip_msg const* request, void* arg) { static_cast<sip_agent*>(arg)->invited(request); }
    /// What a request requires and we cannot do (RFC 3261 section 8.2.2.3), separated by commas.
    static std::string unknown_extensions(sip_msg const* request, bool knows_timers) {
        struct search {
            bool knows_timers;
            std::string unknown;
        } found{knows_timers, ""};
        sip_msg_hdr_apply(
            request, true, SIP_HDR_REQUIRE,
            [](sip_hdr const* header, sip_msg const*, void* arg) {
                auto& in = *static_cast<search*>(arg);
                bool const timer = in.knows_timers && pl_strcasecmp(&header->val, "timer") == 0;
                if (!timer && pl_strcasecmp(&header->val, "replaces") != 0)
                    in.unknown += (in.unknown.empty() ? "" : ",") + text_of(header->val);
                return false;
            },
            &found);
        return found.unknown;
    }
    static bool other(sip_msg const* request, void* arg) {
        sip* const stack = static_cast<sip_agent*>(arg)->transactions;
        if (pl_strcmp(&request->met, "ACK") == 0)
            return true;
        if (is_any_of(request, {"INVITE", "BYE", "CANCEL", "NOTIFY"}))
            return false;
        if (is_any_of(request, {"UPDATE"}))
            static_cast<sip_agent*>(arg)->updated(request);
        else if (is_any_of(request, {"OPTIONS"}))
            sip_treplyf(nullptr, nullptr, stack, request, false, 200, "OK",
                        "%sAccept: application/sdp\r\nContent-Length: 0\r\n\r\n", allowed_methods);
        else if (is_any_of(request, {"REFER"}))  // whoever reaches us could make calls at our owner's expense
            sip_treplyf(nullptr, nullptr, stack, request, false, 603, "Decline", "%sContent-Length: 0\r\n\r\n",
                        allowed_methods);
        else
            sip_treplyf(nullptr, nullptr, stack, request, false, 501, "Not Implemented", "%sContent-Length: 0\r\n\r\n",
                        allowed_methods);
        return true;
    }
    static bool is_any_of(sip_msg const* request, std::initializer_list<char const*> methods) {
        return std::ranges::any_of(methods, [&](char const* one) { return pl_strcmp(&request->met, one) == 0; });
    }
    static void ended(void*) { re_cancel(); }
};

sip_agent::~sip_agent() {
    mem_deref(requests);
    mem_deref(screened);
    mem_deref(sessions);
    mem_deref(transactions);
    mem_deref(names);
}

std::string sip_agent::start(phone_settings const& settings, bool trace, incoming_handler inviting,
                             incoming_handler updating) {
    invited = std::move(inviting);
    updated = std::move(updating);
    knows_timers = settings.session_expires_s != 0;
    names = system_names();
    int failed = sip_alloc(&transactions, names, hash_buckets, hash_buckets, hash_buckets, "fxsphone " FXSMEDIA_VERSION,
                           handlers::ended, this);
    if (failed != 0)
        return std::strerror(failed);
    for (std::string const& ip : {settings.sip_ip, settings.sip_ip6})
        if (std::string problem = ip.empty() ? "" : listen_on(ip, settings); !problem.empty())
            return problem;
    failed = sip_listen(&screened, transactions, true, handlers::screen, this);  // first of all
    failed = failed != 0 ? failed : answers.begin(transactions);
    failed = failed != 0
                 ? failed
                 : sipsess_listen(&sessions, transactions, static_cast<int>(hash_buckets), handlers::invite, this);
    failed = failed != 0 ? failed : sip_listen(&requests, transactions, true, handlers::other, this);
    if (trace)
        sip_set_trace_handler(transactions, print_message);
    return failed == 0 ? "" : std::strerror(failed);
}

std::string sip_agent::listen_on(std::string const& ip, phone_settings const& settings) {
    sa address;
    if (sa_set_str(&address, ip.c_str(), static_cast<std::uint16_t>(settings.sip_port)) != 0)
        return ip + " is no address";
    int failed = 0;
    for (sip_transp const transport : {SIP_TRANSP_UDP, SIP_TRANSP_TCP})
        failed = failed != 0 ? failed : sip_transp_add(transactions, transport, &address);
    if (failed != 0)
        return "can't listen on " + ip + ":" + std::to_string(settings.sip_port) + ": " + std::strerror(failed);
    return settings.uses_tls() ? listen_by_tls(address, settings) : "";
}

std::string sip_agent::listen_by_tls(sa const& address, phone_settings const& settings) {
    if (security.handle() == nullptr)
        if (std::string problem = security.open(settings.tls, settings.tls_hosts()); !problem.empty())
            return problem;
    sa secure = address;
    sa_set_port(&secure, static_cast<std::uint16_t>(settings.tls.port));
    int const failed = sip_transp_add(transactions, SIP_TRANSP_TLS, &secure, security.handle());
    return failed == 0 ? ""
                       : "can't listen on port " + std::to_string(settings.tls.port) + ": " + std::strerror(failed);
}

void sip_agent::stop() {
    sessions = static_cast<sipsess_sock*>(mem_deref(sessions));
    sip_close(transactions, false);
}

bool sip_agent::is_here(std::string const& address) const {
    pl const text = {address.c_str(), address.size()};
    uri parts;
    sa host;
    if (uri_decode(&parts, &text) != 0)
        return false;
    constexpr std::uint16_t usual_port = SIP_PORT;
    return sa_set(&host, &parts.host, parts.port == 0 ? usual_port : parts.port) == 0 &&
           sip_transp_isladdr(transactions, SIP_TRANSP_NONE, &host);
}

}  // namespace fxsphone
