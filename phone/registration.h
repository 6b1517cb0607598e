#pragma once

#include <string>

#include "phone/libre.h"
#include "phone/settings.h"

namespace fxsphone {

/// A sip_auth_h for a `credentials const*`: gives libre what a challenge asks for, EAUTH without a password.
int answer_challenge(char** user, char** password, char const* realm, void* arg);

/// Keeps one telephone registered (RFC 3261 section 10): refreshed when nine tenths of its time are over, begun again
/// after a failure as RFC 5626 section 4.5 has it, after half to all of 60 s, twice as long each time, up to 30
/// minutes. What changes is said on standard error.
class registration {
public:
    /// The first attempt is made after that time. `who` has a registrar and lives longer than this.
    registration(sip* stack, telephone_settings const& who, std::string const& instance, std::uint64_t first_after_ms);
    /// Takes the telephone off the registrar, in the SIP stack's own time.
    ~registration();
    registration(registration const&) = delete;

    bool holds() const { return client != nullptr && sipreg_registered(client) && !sipreg_failed(client); }

private:
    void begin();
    void heard(int error, sip_msg const* response);
    void say(std::string const& news);
    void keep_alive_later();
    void keep_alive();

    telephone_settings const& telephone;
    registrar_settings const& registrar;
    std::string instance;
    sip* transactions;
    sipreg* client = nullptr;
    tmr begin_timer = {};
    tmr keep_alive_timer = {};
    unsigned failures = 0;  ///< attempts that libre did not even begin
    sa far = {};            ///< where the last answer came from
    sip_transp transport = SIP_TRANSP_NONE;
    std::string said;
};

}  // namespace fxsphone
