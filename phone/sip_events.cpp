#include "phone/sip_events.h"

#include "phone/libre.h"

#include <cstring>

namespace fxsphone {

sip_events::~sip_events() {
    stop();
}

std::string sip_events::start(sip* stack) {
    constexpr std::uint32_t buckets = 32;
    int const failed = sipevent_listen(&events, stack, buckets, buckets, nullptr, nullptr);
    return failed == 0 ? "" : std::strerror(failed);
}

void sip_events::stop() {
    events = static_cast<sipevent_sock*>(mem_deref(events));
}

}  // namespace fxsphone
