#include "srtp/srtp.h"

#include <climits>

#include "tests/srtp/octets.h"

namespace {

str const key = hex("E1F97A0D3E018BE0D64FA32C06DE41390EC675AD498AFEEBB6960B3AABE6");
str const ssrc = hex("CAFEBABE");
str const audio('\xAB', 16);
str const header = hex("800F1234DECAFBADCAFEBABE");
// The packets with which libsrtp2 checks itself, under the keys of RFC 3711 appendix B.3.
str const published_srtp = header + hex("4E55DC4CE79978D88CA4D215949D2402B78D6ACC99EA179B8DBB");
str const published_srtcp =
    hex("81C8000BCAFEBABE7128035BE487B9BDBEF89041F977A5A880000001993E08CD54D6C1230798");

}  // namespace

TEST(Srtp, PublishedPackets) {
    srtp_ctx tx = keyed(key, ssrc), rx = keyed(key, str());
    str payload = audio, plain;
    EXPECT_EQ(published_srtp, srtp_protect(tx, header, payload, 0x1234, {10, str()}));
    EXPECT_EQ(published_srtp.substr(12, 16), payload);
    std::uint32_t sequence = 0x71234;
    EXPECT_TRUE(srtp_unprotect(rx, published_srtp, 12, sequence, payload, {10, str()}));
    EXPECT_EQ(audio, payload);
    EXPECT_EQ(0x1234u, sequence);  // the rollover counter is the proven one

    str const compound = hex("81C8000BCAFEBABE") + audio;
    EXPECT_EQ(published_srtcp, srtcp_protect(tx, compound, 1, str()));
    EXPECT_TRUE(srtcp_unprotect(rx, published_srtcp, plain, {10, str()}));
    EXPECT_EQ(compound, plain);
    EXPECT_TRUE(srtcp_unprotect(rx, published_srtcp.leftstr(32), plain, {4, str()}));
    EXPECT_EQ(compound, plain);
    EXPECT_EQ(hex("8000FFFF"), srtcp_protect(tx, compound, 65535, hex("77")).substr(24, 4));
}

TEST(Srtp, TagLengths) {
    srtp_ctx context = keyed(key, ssrc);
    context.roc = 0x89ABCDEF;
    str const tag = hex("D78D9AB000A511B601BE4755708FE650FCA5FD91");  // by OpenSSL
    for (int n = -1; n <= 22; n++) {
        EXPECT_EQ(tag.leftstr(n), srtp_get_tag(context, header + audio, n)) << n;
        EXPECT_TRUE(srtp_match_tag(context, tag.leftstr(n), srtp_absorbed(context, header + audio), 0)) << n;
    }
    EXPECT_FALSE(srtp_match_tag(context, tag + str::x_00, srtp_absorbed(context, header + audio), 0));
}

TEST(Srtp, DamagedPacketsLeaveTheStreamAlone) {
    str const mki = hex("0102");
    srtp_trailer const trailer{10, mki};
    srtp_ctx tx = keyed(key, ssrc), rx = keyed(key, str());
    rx.roc = 1;
    str payload = audio, got("before");
    str const good = srtp_protect(tx, header, payload, 0x11234, trailer);
    std::uint32_t sequence = 0x1234;
    auto const expect_refused = [&](str const& packet, int detail) {
        EXPECT_FALSE(srtp_unprotect(rx, packet, 12, sequence, got, trailer)) << detail;
        EXPECT_TRUE(sequence == 0x1234 && got == "before" && rx.roc == 1) << detail;
    };
    for (int n = 0; n < good.length(); n++)
        expect_refused(good.leftstr(n), n);
    for (int bit = 0; bit < 8 * good.length(); bit++) {
        str bad = good;
        bad.set_character(bit / 8, static_cast<unsigned char>(bad[bit / 8] ^ 1 << bit % 8));
        if (bit / 16 != 14)  // the MKI is not authenticated
            expect_refused(bad, bit);
    }
    expect_refused(good + str::x_00, -1);
    for (int replay = 0; replay < 2; replay++) {
        EXPECT_TRUE(srtp_unprotect(rx, good, 12, sequence, got, trailer));
        EXPECT_TRUE(got == audio && sequence == 0x11234);
    }
}

TEST(Srtp, HostileTrailersAndHeaders) {
    srtp_ctx rx = keyed(key, str());
    str payload;
    std::uint32_t sequence = 0;
    for (str const& packet : {str(), header, published_srtp})
        for (int const tag_length : {INT_MIN, -1, 1, 20, 21, 38, 65535, INT_MAX})
            for (int const mki : {0, 1, 300}) {
                srtp_trailer const trailer{tag_length, str('x', mki)};
                EXPECT_EQ(tag_length <= 0, srtp_unprotect(rx, packet, 12, sequence, payload, trailer));
                srtcp_unprotect(rx, packet, payload, trailer);
            }
    int const longest_header = 262200;
    EXPECT_TRUE(srtp_unprotect(rx, published_srtp, longest_header, sequence, payload, {10, str()}));
    EXPECT_EQ(str(), payload);
}

TEST(Srtcp, WhatIsNotEncryptedIsLeftAlone) {
    srtp_ctx rx = keyed(key, str());
    str plain("before"), clear = published_srtcp;
    for (int n = 0; n < 22; n++)
        EXPECT_FALSE(srtcp_unprotect(rx, str('\xFF', n), plain, {10, str()})) << n;
    clear.set_character(24, 0x00);
    EXPECT_FALSE(srtcp_unprotect(rx, clear, plain, {10, str()}));
    EXPECT_EQ(str("before"), plain);
    EXPECT_TRUE(srtcp_unprotect(rx, str('\xFF', 22), plain, {10, str()}));  // 8 bytes, index and tag
    EXPECT_EQ(str('\xFF', 8), plain);
}
