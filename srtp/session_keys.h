#pragma once

#include <cstdint>

#include "lib/str.h"
#include "srtp/aes.h"
#include "srtp/digest.h"

/// How packets are protected.
struct srtp_suite {
    int key_bytes;   ///< of the master key, 16 or 32
    int salt_bytes;  ///< of the master salt, 14 or 12
    bool aead;       ///< Galois/counter mode (RFC 7714), else counter mode with HMAC-SHA1 (RFC 3711, RFC 6188)

    /// What the length of a call's key material (master key, then master salt) and of its tag stand for:
    ///
    ///     30 bytes        AES_CM_128_HMAC_SHA1
    ///     46              AES_256_CM_HMAC_SHA1
    ///     28, tag of 16   AEAD_AES_128_GCM
    ///     44, tag of 16   AEAD_AES_256_GCM
    ///
    /// Anything else is taken for the first, cut or with zeros for what is missing.
    static srtp_suite of(int material_bytes, int tag_length);
};

/// The session keys of SRTP or of SRTCP that come of one master key, and what is computed with them, as functions of a
/// packet's SSRC, index and bytes. Knows no stream and no order of packets. Keys are wiped when it goes.
class srtp_session_keys {
public:
    enum class kind : unsigned char { rtp = 0, rtcp = 3 };  ///< the first of the three labels (RFC 3711 section 4.3.2)
    static constexpr int hmac_bytes = 20;                   ///< of a whole HMAC-SHA1
    static constexpr int aead_tag_bytes = 16;               ///< RFC 7714 section 13

    srtp_session_keys() = default;
    ~srtp_session_keys() { wipe(); }
    srtp_session_keys(srtp_session_keys const&) = delete;
    srtp_session_keys& operator=(srtp_session_keys const&) = delete;

    /// Derives the keys (RFC 3711 section 4.3, key derivation rate 0) of packets of that kind.
    void derive(srtp_suite const& how, str const& material, kind which);
    /// Takes the keys as they are; without `with_aead`, authentication is HMAC-SHA1 under auth_key.
    void set(bool with_aead, str const& key, str const& session_salt, str const& auth_key);
    void wipe();

    /// The data encrypted, or decrypted, as that of a packet of the sender `ssrc` with this index of 48 bits.
    str crypt(std::uint32_t ssrc, std::uint64_t index, str const& data) const;
    /// What the tag of a packet begins with, hmac_bytes or aead_tag_bytes: over what it has in the clear, what it has
    /// encrypted, and of SRTCP the word of E flag and index (else empty).
    str tag(std::uint32_t ssrc, std::uint64_t index, str const& clear, str const& encrypted, str const& word) const;

private:
    v128_t counter(std::uint32_t ssrc, std::uint64_t index) const;
    str aead_tag(v128_t const& first, str const& associated, str const& encrypted) const;

    bool aead = false;
    aes_key cipher;
    v128_t salt{};  ///< 14 or 12 bytes, then zeros
    hmac<sha1> mac;
    v128_t ghash_key{};
};
