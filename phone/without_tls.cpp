#include <strings.h>

#include "phone/hash.h"
#include "phone/libre.h"
#include "phone/tls_context.h"

/// Stands in for hash.cpp and tls_context.cpp where there is no OpenSSL (FXSMEDIA_PHONE_TLS).
namespace fxsphone {

namespace {

std::string md5_of(std::string const& text) {
    std::uint8_t bytes[MD5_SIZE];
    md5(reinterpret_cast<std::uint8_t const*>(text.data()), text.size(), bytes);
    return {reinterpret_cast<char const*>(bytes), sizeof bytes};
}

}  // namespace

hash_function hash_of(std::string const& algorithm) {
    return algorithm.empty() || strcasecmp(algorithm.c_str(), "MD5") == 0 ? md5_of : nullptr;
}

tls_context::~tls_context() = default;

std::string tls_context::open(tls_settings const&, std::vector<std::string>) {
    return "this fxsphone was built without TLS";
}

}  // namespace fxsphone
