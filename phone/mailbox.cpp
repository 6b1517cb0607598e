#include "phone/mailbox.h"

#include <cstdio>
#include <cstring>

#include "phone/registration.h"

namespace fxsphone {

namespace {

constexpr std::uint32_t subscription_s =
    3600;  // RFC 3842 section 4.2 leaves it to the subscriber: as long as a registration

}  // namespace

std::optional<bool> messages_wait(sip_msg const* request) {
    pl blank = {}, answer = {};
    if (request->mb == nullptr ||
        re_regex(reinterpret_cast<char const*>(mbuf_buf(request->mb)), mbuf_get_left(request->mb),
                 "Messages-Waiting:[ \t]*[a-z]+", &blank, &answer) != 0)
        return std::nullopt;
    return pl_strcasecmp(&answer, "yes") == 0;
}

/// What libre calls; `arg` is the mailbox.
struct mailbox::handlers {
    static void notified(sip* stack, sip_msg const* request, void* arg) {
        auto* const self = static_cast<mailbox*>(arg);
        sip_treply(nullptr, stack, request, 200, "OK");
        self->failures = 0;
        if (auto const waiting = messages_wait(request))
            self->summary(*waiting);
    }
    static void closed(int error, sip_msg const* response, sipevent_substate const*, void* arg) {
        auto* const self = static_cast<mailbox*>(arg);
        self->subscription = static_cast<sipsub*>(mem_deref(self->subscription));
        self->again(response != nullptr && response->scode >= 300
                        ? std::to_string(response->scode) + " " + text_of(response->reason)
                    : error != 0 ? std::strerror(error)
                                 : "ended");
    }
    static void due(void* arg) { static_cast<mailbox*>(arg)->subscribe(); }
};

mailbox::mailbox(sipevent_sock* events, phone_settings const& device, telephone_settings const& who,
                 summary_handler heard)
    : door(events),
      telephone(who),
      own_address("sip:" + who.user + "@" + (who.registrar ? who.registrar->domain : device.own_domain())),
      summary(std::move(heard)) {
    constexpr std::uint64_t soon_ms = 3000;  // after the registration, which some want to see first
    tmr_init(&timer);
    tmr_start(&timer, soon_ms + rand_u16() % soon_ms, handlers::due, this);
}

mailbox::~mailbox() {
    tmr_cancel(&timer);
    mem_deref(subscription);
}

void mailbox::subscribe() {
    std::string const route = telephone.registrar ? telephone.registrar->way_out() : "";
    char const* routes[] = {route.c_str()};
    int const error = sipevent_subscribe(&subscription, door, telephone.mailbox.c_str(), nullptr, own_address.c_str(),
                                         "message-summary", nullptr, subscription_s, telephone.user.c_str(), routes,
                                         route.empty() ? 0 : 1, answer_challenge,
                                         const_cast<credentials*>(&telephone.login), false, nullptr, handlers::notified,
                                         handlers::closed, this, "Accept: application/simple-message-summary\r\n");
    if (error != 0)
        again(std::strerror(error));
}

void mailbox::again(std::string const& reason) {
    std::fprintf(stderr, "line %d: mailbox: %s\n", telephone.number, reason.c_str());
    tmr_start(&timer, retry_after_ms(++failures), handlers::due, this);
}

}  // namespace fxsphone
