#include "srtp/hmac.h"

namespace {

template <typename digest>
str one_shot(str const& key, str const& data) {
    hmac<digest> mac(key);
    mac.update(data);
    unsigned char result[hmac<digest>::mac_bytes];
    mac.finish(result);
    return str(result, sizeof(result));
}

str expand(str (*mac)(str const& key, str const& data), str const& secret, str const& seed, int length) {
    str result;
    for (str a = mac(secret, seed); result.length() < length; a = mac(secret, a))
        result += mac(secret, a + seed);
    return result;
}

}  // namespace

template <typename digest>
hmac<digest>::hmac(str const& key) {
    unsigned char pad[digest::block_bytes] = {};
    if (key.length() > digest::block_bytes) {
        digest hashed;
        hashed.update(key);
        hashed.finish(pad);
    } else {
        std::memcpy(pad, key.cbuffer(), static_cast<unsigned>(key.length()));
    }
    for (unsigned char& octet : pad)
        octet ^= 0x36;
    inner.update(pad, sizeof(pad));
    for (unsigned char& octet : pad)
        octet ^= 0x36 ^ 0x5C;
    outer.update(pad, sizeof(pad));
}

template <typename digest>
void hmac<digest>::finish(unsigned char* mac) {
    unsigned char hashed[mac_bytes];
    inner.finish(hashed);
    outer.update(hashed, mac_bytes);
    outer.finish(mac);
}

template class hmac<sha1>;
template class hmac<md5>;

str hmac_md5(str const& key, str const& data) {
    return one_shot<md5>(key, data);
}

str hmac_sha(str const& key, str const& data) {
    return one_shot<sha1>(key, data);
}

str hmac_md5_expand(str const& secret, str const& seed, int length) {
    return expand(hmac_md5, secret, seed, length);
}

str hmac_sha_expand(str const& secret, str const& seed, int length) {
    return expand(hmac_sha, secret, seed, length);
}
