// Published vectors of the ciphers and digests, and results of other implementations.

#include "srtp/aes_cm.h"
#include "srtp/digest.h"
#include "tests/srtp/octets.h"

/// Key and salt of RFC 3711 appendix B.2.
struct rfc3711 : testing::Test {
    rfc3711() {
        aes_cm_init(context, hex("2B7E151628AED2A6ABF7158809CF4F3C"),
                    hex("F0F1F2F3F4F5F6F7F8F9FAFBFCFDFFFF"));  // the salt has 14 bytes
    }
    str encrypted_zeros(int n) { return aes_cm_encrypt_block(context, str('\0', n)); }
    aes_cm_context context;
};

TEST_F(rfc3711, keystream) {
    struct {
        int block;
        char const* keystream;
    } const cases[] = {
        {0x0000, "E03EAD0935C95E80E166B16DD92B4EB4"}, {0x0001, "D23513162B02D0F72A43A2FE4A5F97AB"},
        {0x0002, "41E95B3BB0A2E8DD477901E4FCA894C0"}, {0xFEFF, "EC8CDF7398607CB0F2D21675EA9EA1E4"},
        {0xFF00, "362B7C3C6773516318A077D7FC5073AE"}, {0xFF01, "6A2CC3787889374FBEB4C81B17BA6C44"},
    };
    str const keystream = encrypted_zeros(65537 * 16);
    for (auto const& c : cases)
        EXPECT_EQ(hex(c.keystream), keystream.substr(16 * c.block, 16)) << std::hex << c.block;
    EXPECT_EQ(keystream.leftstr(16), keystream.rightstr(16)) << "the block number wraps without carry";
}

TEST_F(rfc3711, every_call_starts_on_a_fresh_block_but_uses_what_was_advanced) {
    EXPECT_EQ(hex("E03EAD0935C95E80E166"), encrypted_zeros(10));
    EXPECT_EQ(hex("D23513162B02D0F72A43"), encrypted_zeros(10));
    EXPECT_EQ(str(), encrypted_zeros(0));
    aes_cm_advance(context);
    EXPECT_EQ(16, context.bytes_left);
    EXPECT_EQ(hex("41E95B3BB0A2E8DD4779"), encrypted_zeros(10));
    EXPECT_EQ(0, context.bytes_left);
    context.bytes_left = 6;
    EXPECT_EQ(hex("01E4FCA894"), encrypted_zeros(5));
}

TEST(digest, published_vectors) {
    str const big("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data");
    str const aa80('\xAA', 80), jefe("Jefe"), question("what do ya want for nothing?");
    struct {
        str result;
        char const* published;
    } const cases[] = {
        {auth_md5_bin("abc"), "900150983CD24FB0D6963F7D28E17F72"},       // RFC 1321 appendix A.5
        {auth_sha1("abc"), "A9993E364706816ABA3E25717850C26C9CD0D89D"},  // FIPS 180 appendix A
        {auth_sha1(str('a', 1000000)), "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F"},
        {hmac_md5(jefe, question), "750C783E6AB0B503EAA86E310A5DB738"},  // RFC 2202
        {hmac_md5(aa80, big), "6F630FAD67CDA0EE1FB1F562DB3AA53E"},
        {hmac_sha(jefe, question), "EFFCDF6AE5EB2FA2D27416D5F184DF9C259A7C79"},
        {hmac_sha(aa80, big), "E8E99D0F45237D786D6BBAA7965C7808BBFF1A91"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(hex(c.published), c.result);
}

/// SHA-1 over the results, compared with that of Python's hashlib and hmac for the same messages and keys.
TEST(digest, every_length_of_data_in_pieces_and_of_keys) {
    sha1 all;
    for (int length = 0; length <= 400; length++) {
        str data('\0', length), message('\0', length / 2);
        for (int i = 0; i < length; i++)
            data.set_character(i, static_cast<unsigned char>(length * 31 + i * 7));
        for (int i = 0; i < length / 2; i++)
            message.set_character(i, data[length - 1 - i]);
        md5 five;
        sha1 one;
        for (int at = 0, n; at < length; at += n) {
            n = (length * 13 + at * 37) % 139 + 1;
            five.update(data.substr(at, n));
            one.update(data.substr(at, n));
        }
        for (str const& result : {five.finish(), one.finish(), hmac_md5(data, message), hmac_sha(data, message)})
            all.update(result);
    }
    EXPECT_EQ(hex("6BE7224467310A3039809033F6A3F960E51A264A"), all.finish());
}

TEST(digest, md5_block_by_hand) {
    md5 digest, other;  // RFC 1321 section 3: "a", its padding, and its length of 8 bits, as one block
    str const block = hex("6180") + str('\0', 54) + hex("08");
    digest.transform(block);
    other.transform(block + str('\0', 7) + hex("FF"));  // only 64 bytes count
    EXPECT_EQ(digest.final_bin(), other.final());
    unsigned words[4] = {0xB975C10C, 0xA8B6F1C0, 0xE299C331, 0x61267769};
    EXPECT_EQ(hex("0CC175B9C0F1B6A831C399E2697726"), md5::encode(words, 15));
}

/// Against the output of OpenSSL's TLS1-PRF over one hash alone.
TEST(hmac, expansion_in_whole_blocks) {
    str const secret = hex("35DC8F1A0B7752AA01FE"), seed = hex("C0FFEE00112233445566778899AABBCCDDEEFF42");
    str const sha40 = hex("41E2EDCAA362CCB26AD8284023733795FB5F24BC6326FC76C60DB757F8B6F784EB910B3AF6DF2420");
    str const five = hmac_md5_expand(secret, seed, 40);
    EXPECT_EQ(hex("7F2DEA783975978BCADF9D1B05817DEEB725A0B5D19E67836A9F38A4329F6F4DDBD7E7989B8C7AB2"),
              five.leftstr(40));
    EXPECT_EQ(48, five.length());
    EXPECT_EQ(str(), hmac_md5_expand(secret, seed, 0));
    EXPECT_EQ(sha40, hmac_sha_expand(secret, seed, 40));
    EXPECT_EQ(sha40.leftstr(20), hmac_sha_expand(secret, seed, 1));
}
