#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "srtp/hmac.h"
#include "tests/srtp/octets.h"

namespace {

unsigned size(str const& data) {
    return static_cast<unsigned>(data.length());
}

str openssl_digest(EVP_MD const* algorithm, str const& data) {
    unsigned char result[EVP_MAX_MD_SIZE];
    EXPECT_EQ(1, EVP_Digest(data.cbuffer(), size(data), result, nullptr, algorithm, nullptr));
    return str(result, EVP_MD_get_size(algorithm));
}

str openssl_hmac(EVP_MD const* algorithm, str const& key, str const& data) {
    unsigned char result[EVP_MAX_MD_SIZE];
    EXPECT_TRUE(HMAC(algorithm, key.cbuffer(), key.length(), data.cbuffer(), size(data), result, nullptr));
    return str(result, EVP_MD_get_size(algorithm));
}

}  // namespace

TEST(Digest, PublishedVectors) {
    str const two_blocks("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq");
    struct {
        str (*digest)(str const&);
        str data;
        char const* result;
    } const cases[] = {
        {auth_md5_bin, "", "D41D8CD98F00B204E9800998ECF8427E"},  // RFC 1321 appendix A.5
        {auth_md5_bin, "abc", "900150983CD24FB0D6963F7D28E17F72"},
        {auth_md5_bin, "message digest", "F96B697D7CB7938D525A2F31AAF161D0"},
        {auth_md5_bin, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "D174AB98D277D9F5A5611C2C9F419D9F"},
        {auth_sha1, "abc", "A9993E364706816ABA3E25717850C26C9CD0D89D"},  // FIPS 180 appendix A
        {auth_sha1, two_blocks, "84983E441C3BD26EBAAE4AA1F95129E5E54670F1"},
        {auth_sha1, str('a', 1000000), "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(hex(c.result), c.digest(c.data)) << c.result;
}

TEST(Digest, EveryLengthInPiecesAsOpenssl) {
    std::mt19937 random(3);
    for (int length = 0; length <= 400; length++) {
        str const data = random_octets(random, length);
        md5 five;
        sha1 one;
        for (int at = 0, n; at < length; at += n) {
            n = below(random, 140);
            five.update(data.substr(at, n));
            one.update(data.substr(at, n));
        }
        ASSERT_EQ(openssl_digest(EVP_md5(), data), length % 2 ? five.final() : five.final_bin())
            << "seed 3, " << length;
        ASSERT_EQ(openssl_digest(EVP_sha1(), data), one.finish()) << "seed 3, " << length;
    }
}

TEST(Digest, Md5BlockByHand) {
    md5 digest, other;  // RFC 1321 section 3: "a", its padding, and its length of 8 bits, as one block
    digest.transform(hex("6180") + str('\0', 54) + hex("08"));
    other.transform(hex("6180") + str('\0', 54) + hex("08") + str('\0', 7) +
                    hex("FF"));  // only 64 bytes count
    EXPECT_EQ(digest.final_bin(), other.final());
    unsigned words[4] = {0xB975C10C, 0xA8B6F1C0, 0xE299C331, 0x61267769};
    EXPECT_EQ(hex("0CC175B9C0F1B6A831C399E2697726"), md5::encode(words, 15));
}

TEST(Hmac, Rfc2202) {
    str const dd('\xDD', 50), aa80('\xAA', 80);
    str const big("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data");
    struct {
        str (*mac)(str const&, str const&);
        str key, data;
        char const* result;
    } const cases[] = {
        {hmac_md5, str('\x0B', 16), "Hi There", "9294727A3638BB1C13F48EF8158BFC9D"},
        {hmac_md5, "Jefe", "what do ya want for nothing?", "750C783E6AB0B503EAA86E310A5DB738"},
        {hmac_md5, str('\xAA', 16), dd, "56BE34521D144C88DBB8C733F0E8B3F6"},
        {hmac_md5, aa80, big, "6F630FAD67CDA0EE1FB1F562DB3AA53E"},
        {hmac_sha, str('\x0B', 20), "Hi There", "B617318655057264E28BC0B6FB378C8EF146BE00"},
        {hmac_sha, "Jefe", "what do ya want for nothing?", "EFFCDF6AE5EB2FA2D27416D5F184DF9C259A7C79"},
        {hmac_sha, str('\xAA', 20), dd, "125D7342B9AC11CD91A39AF48AA17B4F63F175D3"},
        {hmac_sha, aa80, big, "E8E99D0F45237D786D6BBAA7965C7808BBFF1A91"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(hex(c.result), c.mac(c.key, c.data)) << c.result;
}

TEST(Hmac, EveryKeyLengthAsOpenssl) {
    std::mt19937 random(5);
    for (int n = 0; n <= 150; n++) {
        str const key = random_octets(random, n), data = random_octets(random, below(random, 200));
        ASSERT_EQ(openssl_hmac(EVP_md5(), key, data), hmac_md5(key, data)) << "seed 5, key of " << n;
        ASSERT_EQ(openssl_hmac(EVP_sha1(), key, data), hmac_sha(key, data)) << "seed 5, key of " << n;
    }
}

/// Against the output of OpenSSL's TLS1-PRF over one hash alone.
TEST(Hmac, ExpansionInWholeBlocks) {
    struct {
        str (*expand)(str const&, str const&, int);
        int wanted, got;
        char const* result;
    } const cases[] = {
        {hmac_md5_expand, 0, 0, ""},
        {hmac_md5_expand, 40, 48,
         "7F2DEA783975978BCADF9D1B05817DEEB725A0B5D19E67836A9F38A4329F6F4DDBD7E7989B8C7AB2"},
        {hmac_sha_expand, 1, 20, "41E2EDCAA362CCB26AD8284023733795FB5F24BC"},
        {hmac_sha_expand, 40, 40,
         "41E2EDCAA362CCB26AD8284023733795FB5F24BC6326FC76C60DB757F8B6F784EB910B3AF6DF2420"},
    };
    for (auto const& c : cases) {
        str const result =
            c.expand(hex("35DC8F1A0B7752AA01FE"), hex("C0FFEE00112233445566778899AABBCCDDEEFF42"), c.wanted);
        EXPECT_EQ(c.got, result.length()) << c.wanted;
        EXPECT_EQ(hex(c.result), result.leftstr(c.wanted == 1 ? 20 : c.wanted));
    }
}
