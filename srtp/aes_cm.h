#pragma once

#include <cstdint>

#include "lib/str.h"
#include "srtp/aes.h"

/// AES-128 in counter mode and the key derivation of SRTP (RFC 3711 sections 4.1.1 and 4.3). The context knows
/// nothing of packets: whoever owns it sets the counter before each one.
///
/// The counter block:
///
///     bytes 0..13    salt, combined with SSRC and packet index by srtp/srtp.h
///     bytes 14..15   number of the 16-byte block within the packet, big-endian
struct aes_cm_context {
    v128_t counter{};             ///< of the next keystream block
    v128_t offset{};              ///< the salt as it was set; bytes 14..15 zero
    v128_t keystream{};           ///< cipher output for the last counter block
    std::int32_t bytes_left = 0;  ///< unused bytes at the end of keystream, 0..16
    v128_t round_keys[11]{};
    str salt;          ///< as given to aes_cm_init
    str key;           ///< as given to aes_cm_init
    str session_key;   ///< 16 bytes, derived
    str auth_key;      ///< 20 bytes, derived, for HMAC-SHA1
    str session_salt;  ///< 16 bytes, derived; the first 14 are used
};

/// Keys the context: 16 bytes of key, 14 of salt; missing ones are zero.
void aes_cm_init(aes_cm_context& context, str const& key, str const& salt);
/// Computes the next 16 bytes of keystream. The block number wraps at 65536 without a carry into the packet index.
void aes_cm_advance(aes_cm_context& context);
/// The data XOR the keystream; encrypts and decrypts. Keystream left at the end of a call is discarded: the next
/// one starts with a fresh counter block.
str aes_cm_encrypt_block(aes_cm_context& context, str const& data);

/// Derive the session keys for SRTP (labels 0, 1, 2) and SRTCP (3, 4, 5) with key derivation rate 0, and re-key
/// the context with them. It must have been keyed with the master key and this master salt.
void aes_cm_prf_rtp(aes_cm_context& context, str const& master_salt);
void aes_cm_prf_rtcp(aes_cm_context& context, str const& master_salt);
