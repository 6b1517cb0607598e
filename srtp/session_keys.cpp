#include "srtp/session_keys.h"

#include <algorithm>

#include "lib/bytes.h"
#include "lib/wipe.h"
#include "lib/wire.h"
#include "srtp/ghash.h"

namespace {

constexpr int block_bytes = sizeof(v128_t);
constexpr int at_block = 14;  // number of the block in the packet, in the counter block
constexpr int at_label = 7;   // RFC 3711 section 4.3.1: 2^48 of 112 bits
constexpr int auth_key_bytes = 20;
constexpr unsigned char encryption_label = 0, authentication_label = 1, salting_label = 2;

void combine16(unsigned char* at, std::uint64_t value) {
    wire::put16(at, wire::get16(at) ^ static_cast<std::uint32_t>(value & 0xFFFF));
}
void combine32(unsigned char* at, std::uint64_t value) {
    wire::put32(at, wire::get32(at) ^ static_cast<std::uint32_t>(value));
}

/// n bytes that the key derivation function yields for a label; 12 bytes of salt stand for 14 that end with zeros.
str derived(aes_key const& master, str const& salt, unsigned char label, int n) {
    str keys;
    keys.keep_secret();
    for (unsigned block = 0; keys.length() < n; block++) {
        v128_t state;
        v128_copy_octet_string(&state, salt);
        state[at_label] ^= label;
        wire::put16(&state[at_block], block);
        master.encrypt(state);
        str piece(state.octets(), std::min(block_bytes, n - keys.length()));
        piece.keep_secret();
        keys = keys + piece;
    }
    return keys;
}

}  // namespace

srtp_suite srtp_suite::of(int material_bytes, int tag_length) {
    bool const aead_tag = tag_length == srtp_session_keys::aead_tag_bytes;
    for (srtp_suite const& candidate : {srtp_suite{32, 14, false}, {16, 12, true}, {32, 12, true}})
        if (material_bytes == candidate.key_bytes + candidate.salt_bytes && (aead_tag || !candidate.aead))
            return candidate;
    return {16, 14, false};
}

void srtp_session_keys::derive(srtp_suite const& how, str const& material, kind which) {
    aes_key master;
    master.set(material.leftstr(how.key_bytes));
    str const master_salt = material.substr(how.key_bytes, how.salt_bytes);
    unsigned char const first = static_cast<unsigned char>(which);
    auto const key = [&](int label, int n) {
        return derived(master, master_salt, static_cast<unsigned char>(first + label), n);
    };
    set(how.aead, key(encryption_label, how.key_bytes), key(salting_label, how.salt_bytes),
        key(authentication_label, auth_key_bytes));
    ::wipe(&master, sizeof master);
    wipe_stack();
}

void srtp_session_keys::set(bool with_aead, str const& key, str const& session_salt, str const& auth_key) {
    aead = with_aead;
    cipher.set(key);
    v128_copy_octet_string(&salt, session_salt);
    mac = hmac<sha1>(auth_key);
    ghash_key = v128_t{};
    cipher.encrypt(ghash_key);
}

void srtp_session_keys::wipe() {
    ::wipe(&cipher, sizeof cipher);
    ::wipe(&salt, sizeof salt);
    ::wipe(&mac, sizeof mac);
    ::wipe(&ghash_key, sizeof ghash_key);
}

/// The counter block of a packet without the number of the block: salt, SSRC and index (RFC 3711 section 4.1.1 and, two
/// bytes further left, RFC 7714 sections 8.1 and 9.1).
v128_t srtp_session_keys::counter(std::uint32_t ssrc, std::uint64_t index) const {
    v128_t block = salt;
    unsigned char* const at = block.octets() + (aead ? 2 : 4);
    combine32(at, ssrc);
    combine16(at + 4, index >> 32);
    combine32(at + 6, index);
    return block;
}

str srtp_session_keys::crypt(std::uint32_t ssrc, std::uint64_t index, str const& data) const {
    v128_t block = counter(ssrc, index);
    wire::put16(&block[at_block], aead ? 2 : 0);  // block 1 is the tag's
    str result(static_cast<unsigned char const*>(nullptr), data.length());
    cipher.counter_mode(block, data.cbuffer(), data.length(), result.buffer());
    return result;
}

str srtp_session_keys::tag(std::uint32_t ssrc, std::uint64_t index, str const& clear, str const& encrypted,
                           str const& word) const {
    if (aead)
        return aead_tag(counter(ssrc, index), clear + word, encrypted);
    unsigned char rollover[4], result[hmac_bytes];
    wire::put32(rollover, static_cast<std::uint32_t>(index >> 16));
    hmac<sha1> packet = mac;
    packet.update(clear);
    packet.update(encrypted);
    if (word.empty())
        packet.update(rollover, sizeof rollover);
    else
        packet.update(word);
    packet.finish(result);
    return str(result, hmac_bytes);
}

str srtp_session_keys::aead_tag(v128_t const& first, str const& associated, str const& encrypted) const {
    ghash packet(ghash_key);
    packet.update(associated);
    packet.update(encrypted);
    v128_t result = packet.finish(associated.length(), encrypted.length());
    v128_t mask = first;
    wire::put16(&mask[at_block], 1);
    cipher.encrypt(mask);
    v128_xor(result, mask);
    return str(result.octets(), aead_tag_bytes);
}
