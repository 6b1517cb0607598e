#include "phone/media_security.h"

#include "phone/libre.h"

#include <sys/random.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace fxsphone {

namespace {

/// RFC 4568 section 6.2, the better one first.
struct crypto_suite {
    char const* name;
    int tag_bytes;
};
constexpr crypto_suite crypto_suites[] = {{"AES_CM_128_HMAC_SHA1_80", 10}, {"AES_CM_128_HMAC_SHA1_32", 4}};

constexpr char const* attribute_name = "crypto";
constexpr std::string_view key_method = "inline:";

/// A key that someone could guess is worse than none.
void draw(srtp_key& key) {
    if (getrandom(key.data(), key.size(), 0) != static_cast<ssize_t>(key.size()))
        std::abort();
}

/// "KEY|lifetime|MKI:length" of one key without an identifier.
std::optional<srtp_key> decoded(std::string const& parameters) {
    std::string const text = parameters.substr(0, parameters.find('|'));
    if (parameters.find_first_of(";:") != std::string::npos)
        return std::nullopt;
    std::uint8_t bytes[64];
    std::size_t length = text.size() <= 64 ? sizeof bytes : 0;
    srtp_key key;
    if (length == 0 || base64_decode(text.data(), text.size(), bytes, &length) != 0 || length != key.size())
        return std::nullopt;
    std::copy_n(bytes, key.size(), key.begin());
    return key;
}

/// Session parameters change what is protected and how; only the window size is a mere hint (RFC 4568 section 6.3).
bool harmless(std::string_view parameters) {
    std::size_t const begin = parameters.find_first_not_of(' ');
    return begin == parameters.npos ||
           (parameters.substr(begin).starts_with("WSH=") && parameters.find(' ', begin) == parameters.npos);
}

}  // namespace

media_security::media_security(srtp_use wanted) : use(wanted) {
    if (use != srtp_use::off)
        for (srtp_key& key : own)
            draw(key);
}

char const* media_security::profile() const {
    return use == srtp_use::required ? sdp_proto_rtpsavp : sdp_proto_rtpavp;
}

char const* media_security::other_profile() const {
    return use == srtp_use::off ? nullptr : use == srtp_use::required ? sdp_proto_rtpavp : sdp_proto_rtpsavp;
}

void media_security::write(sdp_media* stream, bool is_offer) const {
    sdp_media_del_lattr(stream, attribute_name);
    if (use == srtp_use::off)
        return;
    if (!is_offer && agreed)
        write_one(stream, agreed->tag, agreed->suite);
    for (std::size_t suite = 0; is_offer && suite < suites; suite++)
        write_one(stream, std::to_string(suite + 1), suite);
}

void media_security::write_one(sdp_media* stream, std::string const& tag, std::size_t suite) const {
    char key[64];
    std::size_t length = sizeof key;
    if (base64_encode(own[suite].data(), own[suite].size(), key, &length) == 0)
        sdp_media_set_lattr(stream, false, attribute_name, "%s %s inline:%b", tag.c_str(), crypto_suites[suite].name,
                            key, length);
}

bool media_security::read(sdp_media const* stream, bool is_offer) {
    agreed.reset();
    if (use == srtp_use::off)
        return true;
    struct search {
        media_security& whose;
        bool is_offer;
    } one{*this, is_offer};
    sdp_media_rattr_apply(
        stream, attribute_name,
        [](char const*, char const* value, void* arg) {
            auto const& [whose, in_offer] = *static_cast<search*>(arg);
            whose.agreed = whose.understood(value == nullptr ? "" : value, in_offer);
            return whose.agreed.has_value();
        },
        &one);
    bool const plain_offered = !is_offer || std::string_view(sdp_media_proto(stream)) == sdp_proto_rtpavp;
    return agreed || (use == srtp_use::optional && plain_offered);
}

std::optional<media_security::agreement> media_security::understood(std::string const& attribute, bool is_offer) const {
    pl tag, name, method, more;
    if (re_regex(attribute.data(), attribute.size(), "[0-9]+[ ]+[^ ]+[ ]+[^ ]+[^]*", &tag, nullptr, &name, nullptr,
                 &method, &more) != 0)
        return std::nullopt;
    std::string const keys = text_of(method);
    for (std::size_t suite = 0; suite < suites; suite++) {
        bool const ours = is_offer || text_of(tag) == std::to_string(suite + 1);
        if (!ours || pl_strcasecmp(&name, crypto_suites[suite].name) != 0 || !harmless(text_of(more)) ||
            !keys.starts_with(key_method))
            continue;
        if (auto const key = decoded(keys.substr(key_method.size())))
            return agreement{suite, text_of(tag), *key};
    }
    return std::nullopt;
}

std::optional<srtp_plan> media_security::plan() const {
    if (!agreed)
        return std::nullopt;
    return srtp_plan{agreed->far, own[agreed->suite], crypto_suites[agreed->suite].tag_bytes};
}

std::string without_keys(std::string const& message) {
    std::string clean;
    std::size_t from = 0;
    for (std::size_t at; (at = message.find(key_method, from)) != message.npos;) {
        clean += message.substr(from, at - from) + std::string(key_method) + "...";
        from = std::min(message.find_first_of("\r\n", at), message.size());
    }
    return clean + message.substr(from);
}

}  // namespace fxsphone
