#include "phone/hash.h"

#include <openssl/evp.h>
#include <strings.h>

namespace fxsphone {

namespace {

template <EVP_MD const* (*algorithm)()>
std::string hash(std::string const& text) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_Digest(text.data(), text.size(), bytes, &length, algorithm(), nullptr);
    return {reinterpret_cast<char const*>(bytes), length};
}

}  // namespace

hash_function hash_of(std::string const& algorithm) {
    if (algorithm.empty() || strcasecmp(algorithm.c_str(), "MD5") == 0)
        return hash<EVP_md5>;
    return strcasecmp(algorithm.c_str(), "SHA-256") == 0 ? hash<EVP_sha256> : nullptr;
}

}  // namespace fxsphone
