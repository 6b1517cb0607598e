#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "phone/settings.h"

struct sip_msg;

namespace fxsphone {

/// Answers to the challenges of digest authentication (RFC 3261 section 22), with SHA-256 (RFC 8760) or MD5: of several
/// challenges for a realm the first one that we know. libre 1.1 knows MD5 only; it reads the challenges here, too.
class digest_answers {
public:
    /// Takes the challenges of a 401 or 407. An empty text, or why they cannot be answered: no password, an algorithm
    /// that is not ours, or the password was wrong.
    std::string take(sip_msg const* response, credentials const& login);

    /// The header fields for a request, each with its line end; empty without challenges. Every call counts: the
    /// answer is for one request.
    std::string headers(std::string const& method, std::string const& uri);

    bool empty() const { return realms.empty(); }
    /// Before a request that has nothing to do with those before it.
    void forget() { realms.clear(); }

private:
    struct challenge {
        std::string header;  ///< to be written before the answer
        std::string realm, nonce, opaque, algorithm, user, password;
        bool counts = false;  ///< qop=auth
        bool stale = false;
        std::uint32_t uses = 0;
    };
    struct reader;

    static std::string answer(challenge& one, std::string const& method, std::string const& uri);

    std::vector<challenge> realms;
};

}  // namespace fxsphone
