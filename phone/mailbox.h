#pragma once

#include <functional>
#include <optional>
#include <string>

#include "phone/libre.h"
#include "phone/settings.h"

namespace fxsphone {

/// Whether a message summary (RFC 3842) says that messages wait; nullopt: it does not say.
std::optional<bool> messages_wait(sip_msg const* request);

/// A telephone's subscription to its mailbox (RFC 3842, RFC 6665). One that ends or fails is begun again after half to
/// all of a minute, twice as long after each failure in a row, up to 30 minutes.
class mailbox {
public:
    using summary_handler = std::function<void(bool waiting)>;

    /// Begins soon. `who` has a mailbox; it and `events` live longer than this.
    mailbox(sipevent_sock* events, phone_settings const& device, telephone_settings const& who, summary_handler heard);
    /// Ends the subscription, in the SIP stack's own time.
    ~mailbox();
    mailbox(mailbox const&) = delete;

private:
    struct handlers;

    void subscribe();
    void again(std::string const& reason);

    sipevent_sock* door;
    telephone_settings const& telephone;
    std::string own_address;
    summary_handler summary;
    sipsub* subscription = nullptr;
    tmr timer = {};
    unsigned failures = 0;  ///< in a row
};

}  // namespace fxsphone
