#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "srtp/digest.h"
#include "tests/srtp/octets.h"

namespace {

/// The digest, or the HMAC where there is a key.
str openssl(EVP_MD const* algorithm, str const& data, str const* key = nullptr) {
    unsigned char result[EVP_MAX_MD_SIZE];
    auto const size = static_cast<unsigned>(data.length());
    if (key)
        EXPECT_TRUE(HMAC(algorithm, key->cbuffer(), key->length(), data.cbuffer(), size, result, nullptr));
    else
        EXPECT_EQ(1, EVP_Digest(data.cbuffer(), size, result, nullptr, algorithm, nullptr));
    return str(result, EVP_MD_get_size(algorithm));
}

}  // namespace

TEST(Digest, PublishedVectors) {
    str const big("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data");
    str const dd('\xDD', 50), aa80('\xAA', 80), jefe("Jefe"), question("what do ya want for nothing?");
    struct {
        str result;
        char const* published;
    } const cases[] = {
        {auth_md5_bin(""), "D41D8CD98F00B204E9800998ECF8427E"},  // RFC 1321 appendix A.5
        {auth_md5_bin("abc"), "900150983CD24FB0D6963F7D28E17F72"},
        {auth_md5_bin("message digest"), "F96B697D7CB7938D525A2F31AAF161D0"},
        {auth_md5_bin("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
         "D174AB98D277D9F5A5611C2C9F419D9F"},
        {auth_sha1("abc"), "A9993E364706816ABA3E25717850C26C9CD0D89D"},  // FIPS 180 appendix A
        {auth_sha1("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
         "84983E441C3BD26EBAAE4AA1F95129E5E54670F1"},
        {auth_sha1(str('a', 1000000)), "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F"},
        {hmac_md5(str('\x0B', 16), "Hi There"), "9294727A3638BB1C13F48EF8158BFC9D"},  // RFC 2202
        {hmac_md5(jefe, question), "750C783E6AB0B503EAA86E310A5DB738"},
        {hmac_md5(str('\xAA', 16), dd), "56BE34521D144C88DBB8C733F0E8B3F6"},
        {hmac_md5(aa80, big), "6F630FAD67CDA0EE1FB1F562DB3AA53E"},
        {hmac_sha(str('\x0B', 20), "Hi There"), "B617318655057264E28BC0B6FB378C8EF146BE00"},
        {hmac_sha(jefe, question), "EFFCDF6AE5EB2FA2D27416D5F184DF9C259A7C79"},
        {hmac_sha(str('\xAA', 20), dd), "125D7342B9AC11CD91A39AF48AA17B4F63F175D3"},
        {hmac_sha(aa80, big), "E8E99D0F45237D786D6BBAA7965C7808BBFF1A91"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(hex(c.published), c.result);
}

TEST(Digest, EveryLengthOfDataInPiecesAndOfKeysAsOpenssl) {
    std::mt19937 random(3);
    for (int length = 0; length <= 400; length++) {
        SCOPED_TRACE(testing::Message() << "seed 3, length " << length);
        str const data = random_octets(random, length), message = random_octets(random, below(random, 200));
        md5 five;
        sha1 one;
        for (int at = 0, n; at < length; at += n) {
            n = below(random, 140);
            five.update(data.substr(at, n));
            one.update(data.substr(at, n));
        }
        ASSERT_EQ(openssl(EVP_md5(), data), length % 2 ? five.final() : five.final_bin());
        ASSERT_EQ(openssl(EVP_sha1(), data), one.finish());
        ASSERT_EQ(openssl(EVP_md5(), message, &data), hmac_md5(data, message));
        ASSERT_EQ(openssl(EVP_sha1(), message, &data), hmac_sha(data, message));
    }
}

TEST(Digest, Md5BlockByHand) {
    md5 digest, other;  // RFC 1321 section 3: "a", its padding, and its length of 8 bits, as one block
    str const block = hex("6180") + str('\0', 54) + hex("08");
    digest.transform(block);
    other.transform(block + str('\0', 7) + hex("FF"));  // only 64 bytes count
    EXPECT_EQ(digest.final_bin(), other.final());
    unsigned words[4] = {0xB975C10C, 0xA8B6F1C0, 0xE299C331, 0x61267769};
    EXPECT_EQ(hex("0CC175B9C0F1B6A831C399E2697726"), md5::encode(words, 15));
}

/// Against the output of OpenSSL's TLS1-PRF over one hash alone.
TEST(Hmac, ExpansionInWholeBlocks) {
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
