#include "srtp/aes_cm.h"

#include <algorithm>

namespace {

constexpr int session_key_bytes = 16;
constexpr int auth_key_bytes = 20;  // RFC 3711 section 5.2
constexpr int rounds = 10;

/// The first n bytes that the key derivation function yields for a label (RFC 3711 section 4.3.1, index 0): the
/// label stands at 2^48 of the 112-bit salt, which is byte 7.
str derive(aes_cm_context& context, str const& master_salt, unsigned char label, int n) {
    v128_copy_octet_string(&context.counter, master_salt);
    context.counter[7] ^= label;
    context.counter[14] = context.counter[15] = 0;
    str derived = aes_cm_encrypt_block(context, str('\0', n));
    derived.keep_secret();
    return derived;
}

void derive_session(aes_cm_context& context, str const& master_salt, unsigned char key_label, unsigned char auth_label,
                    unsigned char salt_label) {
    context.session_key = derive(context, master_salt, key_label, session_key_bytes);
    context.session_salt = derive(context, master_salt, salt_label, session_key_bytes);
    context.auth_key = derive(context, master_salt, auth_label, auth_key_bytes);
    aes_cm_init(context, context.session_key, context.session_salt);
}

}  // namespace

void aes_cm_init(aes_cm_context& context, str const& key, str const& salt) {
    context.key = key;
    context.salt = salt;
    v128_copy_octet_string(&context.offset, salt);
    context.offset[14] = context.offset[15] = 0;
    context.counter = context.offset;
    v128_t cipher_key;
    v128_copy_octet_string(&cipher_key, key);
    aes_cm_expand_key(cipher_key, context.round_keys);
    context.bytes_left = 0;
}

void aes_cm_advance(aes_cm_context& context) {
    v128_t const zeros{};
    context.bytes_left = sizeof(v128_t);
    aes_counter_mode(context.round_keys, rounds, context.counter, zeros.octets(), context.bytes_left,
                     context.keystream.octets());
}

str aes_cm_encrypt_block(aes_cm_context& context, str const& data) {
    constexpr int block_bytes = sizeof(v128_t);
    str result(static_cast<unsigned char const*>(nullptr), data.length());
    unsigned char const* const in = data.cbuffer();
    unsigned char* const out = result.buffer();
    int const advanced = std::min(data.length(), context.bytes_left);
    for (int i = 0; i < advanced; i++)
        out[i] = in[i] ^ context.keystream[block_bytes - context.bytes_left + i];
    aes_counter_mode(context.round_keys, rounds, context.counter, in + advanced, data.length() - advanced,
                     out + advanced);
    context.bytes_left = 0;
    return result;
}

void aes_cm_prf_rtp(aes_cm_context& context, str const& master_salt) {
    derive_session(context, master_salt, 0, 1, 2);
}

void aes_cm_prf_rtcp(aes_cm_context& context, str const& master_salt) {
    derive_session(context, master_salt, 3, 4, 5);
}
