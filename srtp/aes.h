#pragma once

#include "srtp/v128.h"

/// AES-128 encryption (FIPS-197) of single blocks. There is no decryption: counter mode needs none. The tables
/// of srtp/aes_tables.h must have been computed.

/// Round keys from a 16-byte key (FIPS-197 section 5.2); key 0 is the cipher key itself.
void aes_cm_expand_key(v128_t const& key, v128_t (&round_keys)[11]);
/// Encrypts one block in place.
void aes_cm_encrypt(v128_t* block, v128_t const (&round_keys)[11]);
