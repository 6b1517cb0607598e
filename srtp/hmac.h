#pragma once

#include "lib/str.h"
#include "srtp/md5.h"
#include "srtp/sha1.h"

/// HMAC (RFC 2104) over MD5 and SHA-1, and the P_hash expansion built on it.

/// A running HMAC. Both key pads are absorbed when it is made, so a keyed object is worth keeping: every message
/// starts from a copy of it and saves two of the compressions and all work on the key.
template <typename digest>
class hmac {
public:
    static constexpr int mac_bytes = digest::digest_bytes;

    /// Any length of key; what is longer than 64 bytes is hashed first.
    explicit hmac(str const& key = str());
    void update(unsigned char const* data, int n) { inner.update(data, n); }
    void update(str const& data) { inner.update(data); }
    /// Writes mac_bytes. The object is spent afterwards.
    void finish(unsigned char* mac);

private:
    digest inner, outer;
};
extern template class hmac<sha1>;
extern template class hmac<md5>;

/// 16 bytes.
str hmac_md5(str const& key, str const& data);
/// 20 bytes.
str hmac_sha(str const& key, str const& data);

/// P_hash (RFC 2246 section 5): at least `length` bytes, in whole blocks of the MAC; never cut.
str hmac_md5_expand(str const& secret, str const& seed, int length);
str hmac_sha_expand(str const& secret, str const& seed, int length);
