#pragma once

#include <string>
#include <vector>

#include "phone/settings.h"

struct tls;

namespace fxsphone {

/// What TLS connections of the SIP stack share (RFC 5246, RFC 8446; 1.2 at least). A certificate is accepted when the
/// trusted authorities vouch for it and it was made out to one of the registrars and proxies that are reached by TLS
/// (RFC 5922 section 7.2). A refusal is said on standard error. The greeting names the host (SNI, RFC 6066 section 3)
/// when there is but one: which connection leads to which, libre does not tell.
class tls_context {
public:
    ~tls_context();

    /// `hosts` are names or addresses. An empty text, or what went wrong.
    std::string open(tls_settings const& chosen, std::vector<std::string> hosts);
    /// nullptr before open().
    tls* handle() const { return context; }

private:
    struct handlers;

    std::string trust(tls_settings const& chosen);

    tls* context = nullptr;
    std::vector<std::string> accepted;
    std::string only_name;  ///< said with the greeting (SNI); empty: none
};

}  // namespace fxsphone
