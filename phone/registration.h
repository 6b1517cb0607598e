#pragma once

#include <string>

#include "phone/digest.h"
#include "phone/libre.h"
#include "phone/settings.h"

namespace fxsphone {

/// A sip_auth_h for a `credentials const*`: gives libre what a challenge asks for, EAUTH without a password.
int answer_challenge(char** user, char** password, char const* realm, void* arg);

/// How long to wait after so many failures in a row: half to all of 30 s for none, twice as long for each, up to 30
/// minutes (RFC 5626 section 4.5, its base-time for a single flow).
std::uint64_t retry_after_ms(unsigned failures);

/// Keeps one telephone registered (RFC 3261 section 10): refreshed when nine tenths of its time are over; begun again
/// after a failure, and after the loss of the connection or flow to the registrar, when retry_after_ms() has passed.
/// What changes is said on standard error.
class registration {
public:
    /// The first attempt is made after that time. `who` has a registrar and lives longer than this.
    registration(sip* stack, telephone_settings const& who, std::string const& instance, std::uint64_t first_after_ms);
    ~registration();
    registration(registration const&) = delete;

    /// The registrar knows where the telephone is, as far as we know.
    bool holds() const { return registered; }
    /// Takes the telephone off the registrar. The SIP stack does not end before that is done; then this may go.
    void end();

private:
    struct handlers;

    void begin();
    void send();
    void again_after(std::uint64_t wait_ms);
    void taken(sip_msg const* response);
    bool tries_again(sip_msg const* response);
    std::uint32_t granted_s(sip_msg const* response) const;
    void failed(std::string const& reason);
    void lost();
    void take_down();
    void leave();
    void watch_flow(sip_msg const* response);
    void say(std::string const& news);
    void keep_alive_later();
    void keep_alive();

    telephone_settings const& telephone;
    registrar_settings const& registrar;
    std::string contact_parameters;  ///< of an outbound flow (RFC 5626 section 4.2)
    std::string uri;                 ///< of the requests
    sip* transactions;
    sip_dialog* dialog = nullptr;
    struct sip_request* under_way = nullptr;
    sip_keepalive* flow = nullptr;  ///< tells of its loss
    digest_answers login;
    sip_loopstate loops = {};
    tmr begin_timer = {};
    tmr keep_alive_timer = {};
    std::uint32_t expires_s;  ///< asked for; 0: to be taken off
    unsigned failures = 0;    ///< in a row
    bool registered = false;
    std::uint64_t registered_ms = 0;  ///< since when
    bool ending = false;
    std::string contact;  ///< of the last request
    sa far = {};          ///< where the last answer came from
    sip_transp transport = SIP_TRANSP_NONE;
    std::string said;
};

}  // namespace fxsphone
