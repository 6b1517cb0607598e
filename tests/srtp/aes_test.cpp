#include "srtp/aes.h"

#include "srtp/aes_cm.h"
#include "tests/srtp/octets.h"

namespace {

// RFC 3711 appendix B.2
str const b2_key = hex("2B7E151628AED2A6ABF7158809CF4F3C");
str const b2_salt = hex("F0F1F2F3F4F5F6F7F8F9FAFBFCFD");

}  // namespace

TEST(Aes, PublishedBlockAndKeySchedule) {
    v128_t round_keys[11], block, key;
    v128_copy_octet_string(&block, hex("00112233445566778899AABBCCDDEEFF"));
    v128_copy_octet_string(&key, hex("000102030405060708090A0B0C0D0E0F"));
    aes_cm_expand_key(key, round_keys);
    aes_cm_encrypt(&block, round_keys);  // FIPS-197 appendix C.1
    EXPECT_EQ(hex("69C4E0D86A7B0430D8CDB78070B4C55A"), str(block.octets(), 16));
    v128_copy_octet_string(&key, b2_key);
    aes_cm_expand_key(key, round_keys);  // FIPS-197 appendix A.1
    EXPECT_EQ(hex("D014F9A8C9EE2589E13F0CC8B6630CA6"), str(round_keys[10].octets(), 16));
}

TEST(AesCm, KeystreamOfRfc3711) {
    struct {
        int block;
        char const* keystream;
    } const cases[] = {
        {0x0000, "E03EAD0935C95E80E166B16DD92B4EB4"}, {0x0001, "D23513162B02D0F72A43A2FE4A5F97AB"},
        {0x0002, "41E95B3BB0A2E8DD477901E4FCA894C0"}, {0xFEFF, "EC8CDF7398607CB0F2D21675EA9EA1E4"},
        {0xFF00, "362B7C3C6773516318A077D7FC5073AE"}, {0xFF01, "6A2CC3787889374FBEB4C81B17BA6C44"},
    };
    aes_cm_context context;
    aes_cm_init(context, b2_key, b2_salt + hex("FFFF"));  // the salt has 14 bytes
    str const keystream = aes_cm_encrypt_block(context, str('\0', 65537 * 16));
    for (auto const& c : cases)
        EXPECT_EQ(hex(c.keystream), keystream.substr(16 * c.block, 16)) << std::hex << c.block;
    EXPECT_EQ(keystream.leftstr(16), keystream.rightstr(16)) << "the block number wraps without carry";
}

TEST(AesCm, EveryCallStartsOnAFreshBlockButUsesWhatWasAdvanced) {
    aes_cm_context context;
    aes_cm_init(context, b2_key, b2_salt);
    str const zeros('\0', 10);
    EXPECT_EQ(hex("E03EAD0935C95E80E166"), aes_cm_encrypt_block(context, zeros));
    EXPECT_EQ(hex("D23513162B02D0F72A43"), aes_cm_encrypt_block(context, zeros));
    EXPECT_EQ(str(), aes_cm_encrypt_block(context, str()));
    aes_cm_advance(context);
    EXPECT_EQ(16, context.bytes_left);
    EXPECT_EQ(hex("41E95B3BB0A2E8DD4779"), aes_cm_encrypt_block(context, zeros));
    EXPECT_EQ(0, context.bytes_left);
    context.bytes_left = 6;
    EXPECT_EQ(hex("01E4FCA894"), aes_cm_encrypt_block(context, str('\0', 5)));
}

TEST(AesCm, KeyDerivationOfRfc3711) {
    str const key = hex("E1F97A0D3E018BE0D64FA32C06DE4139"), salt = hex("0EC675AD498AFEEBB6960B3AABE6");
    aes_cm_context context;
    aes_cm_init(context, key, salt);
    aes_cm_prf_rtp(context, salt + hex("FFFF"));  // only 14 bytes count
    EXPECT_EQ(hex("C61E7A93744F39EE10734AFE3FF7A087"), context.session_key);
    EXPECT_EQ(hex("30CBBC08863D8C85D49DB34A9AE1"), context.session_salt.leftstr(14));
    EXPECT_EQ(hex("CEBE321F6FF7716B6FD4AB49AF256A156D38BAA4"), context.auth_key);
}
