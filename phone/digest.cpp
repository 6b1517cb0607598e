#include "phone/digest.h"

#include <algorithm>
#include <cstdio>

#include "phone/hash.h"
#include "phone/libre.h"

namespace fxsphone {

namespace {

std::string hexadecimal(std::string const& bytes) {
    std::string hex;
    for (char const byte : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(byte));
        hex += pair;
    }
    return hex;
}

std::string eight_digits(std::uint32_t number) {
    char hex[9];
    std::snprintf(hex, sizeof hex, "%08x", number);
    return hex;
}

/// Whether one of the words of a list like "auth,auth-int" is "auth".
bool offers_auth(std::string const& list) {
    return ("," + list + ",").find(",auth,") != std::string::npos;
}

}  // namespace

struct digest_answers::reader {
    std::vector<challenge> read;
    std::string unknown;  ///< an algorithm

    void take(sip_hdr const* header, char const* answered_by) {
        httpauth_digest_chall one;
        if (httpauth_digest_challenge_decode(&one, &header->val) != 0)
            return;
        std::string const realm = text_of(one.realm);
        if (hash_of(text_of(one.algorithm)) == nullptr)
            unknown = text_of(one.algorithm);
        else if (std::ranges::count(read, realm, &challenge::realm) == 0)
            read.push_back({.header = answered_by,
                            .realm = realm,
                            .nonce = text_of(one.nonce),
                            .opaque = text_of(one.opaque),
                            .algorithm = text_of(one.algorithm),
                            .counts = offers_auth(text_of(one.qop)),
                            .stale = pl_strcasecmp(&one.stale, "true") == 0});
    }
    static bool www(sip_hdr const* header, sip_msg const*, void* arg) {
        static_cast<reader*>(arg)->take(header, "Authorization");
        return false;
    }
    static bool proxy(sip_hdr const* header, sip_msg const*, void* arg) {
        static_cast<reader*>(arg)->take(header, "Proxy-Authorization");
        return false;
    }
};

std::string digest_answers::take(sip_msg const* response, credentials const& login) {
    reader found;
    sip_msg_hdr_apply(response, true, SIP_HDR_WWW_AUTHENTICATE, reader::www, &found);
    sip_msg_hdr_apply(response, true, SIP_HDR_PROXY_AUTHENTICATE, reader::proxy, &found);
    if (found.read.empty())
        return found.unknown.empty() ? "its challenge can't be read"
                                     : "it asks for the digest algorithm " + found.unknown;
    if (login.password.empty())
        return "it asks for a password, there is none";
    for (challenge& one : found.read) {
        auto const known = std::ranges::find(realms, one.realm, &challenge::realm);
        if (known != realms.end() && !one.stale)
            return "the password is wrong";
        one.user = login.user;
        one.password = login.password;
        if (known != realms.end())
            *known = one;
        else
            realms.push_back(one);
    }
    return "";
}

std::string digest_answers::headers(std::string const& method, std::string const& uri) {
    std::string all;
    for (challenge& one : realms)
        all += answer(one, method, uri);
    return all;
}

/// RFC 7616 section 3.4.
std::string digest_answers::answer(challenge& one, std::string const& method, std::string const& uri) {
    hash_function const hash = hash_of(one.algorithm);
    std::string const secret = hexadecimal(hash(one.user + ":" + one.realm + ":" + one.password));
    std::string const request = hexadecimal(hash(method + ":" + uri));
    std::string const count = eight_digits(++one.uses);
    std::string const drawn = eight_digits(rand_u32()) + eight_digits(rand_u32());
    std::string const between = one.counts ? one.nonce + ":" + count + ":" + drawn + ":auth" : one.nonce;
    std::string const response = hexadecimal(hash(secret + ":" + between + ":" + request));
    return one.header + ": Digest username=\"" + one.user + "\", realm=\"" + one.realm + "\", nonce=\"" + one.nonce +
           "\", uri=\"" + uri + "\", response=\"" + response + "\"" +
           (one.algorithm.empty() ? "" : ", algorithm=" + one.algorithm) +
           (one.opaque.empty() ? "" : ", opaque=\"" + one.opaque + "\"") +
           (one.counts ? ", cnonce=\"" + drawn + "\", qop=auth, nc=" + count : "") + "\r\n";
}

}  // namespace fxsphone
