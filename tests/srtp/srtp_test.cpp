#include "srtp/srtp.h"

#include <climits>

#include "srtp/aes_tables.h"
#include "srtp/srtp_packet.h"
#include "tests/srtp/octets.h"

namespace {

bool const tables_ready = (aes_compute_tables(), true);

str const master_key = hex("E1F97A0D3E018BE0D64FA32C06DE4139");
str const master_salt = hex("0EC675AD498AFEEBB6960B3AABE6");
str const ssrc = hex("CAFEBABE");
str const audio('\xAB', 16);
str const header = hex("800F1234DECAFBADCAFEBABE");
// The packets with which libsrtp2 checks itself, under the keys of RFC 3711 appendix B.3.
str const published_srtp = header + hex("4E55DC4CE79978D88CA4D215949D2402B78D6ACC99EA179B8DBB");
str const published_srtcp =
    hex("81C8000BCAFEBABE7128035BE487B9BDBEF89041F977A5A880000001993E08CD54D6C1230798");

srtp_ctx keyed(str const& own_ssrc, str const& key = master_key) {
    srtp_ctx context;
    srtp_init(context, key, master_salt, own_ssrc);
    return context;
}

str counter(aes_cm_context const& cipher) {
    return str(cipher.counter.octets(), 16);
}

}  // namespace

TEST(Srtp, CounterBlocks) {
    srtp_ctx context = keyed(hex("DEADBEEF"));
    context.roc = 0x00010203;
    srtp_set_index(context, 0xABCD1234);  // salt 30CBBC08 863D8C85 D49DB34A 9AE1
    EXPECT_EQ(hex("30CBBC08863D8C85D49CB14988D50000"), counter(context.rtp));
    srtp_set_local_ssrc(context);
    EXPECT_EQ(hex("30CBBC085890326AD49CB14988D50000"), counter(context.rtp));
    aes_cm_encrypt_block(context.rtp, audio);
    srtp_set_rem_ssrc(context, ssrc);
    EXPECT_EQ(hex("30CBBC084CC3363BD49CB14988D50001"), counter(context.rtp));
}

TEST(Srtp, PublishedPackets) {
    srtp_ctx tx = keyed(ssrc), rx = keyed(str());
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
    srtp_ctx context = keyed(ssrc);
    context.roc = 0x89ABCDEF;
    str const tag = hex("D78D9AB000A511B601BE4755708FE650FCA5FD91");  // by OpenSSL
    for (int n = -1; n <= 22; n++) {
        EXPECT_EQ(tag.leftstr(n), srtp_get_tag(context, header + audio, n)) << n;
        EXPECT_TRUE(srtp_match_tag(context, tag.leftstr(n), header + audio, 0)) << n;
    }
    EXPECT_FALSE(srtp_match_tag(context, tag + str::x_00, header + audio, 0));
}

TEST(Srtp, DamagedPacketsLeaveTheStreamAlone) {
    str const mki = hex("0102");
    srtp_trailer const trailer{10, mki};
    srtp_ctx tx = keyed(ssrc), rx = keyed(str()), stranger = keyed(ssrc, hex("00"));
    rx.roc = 1;
    str payload = audio, foreign = audio, got("before");
    str const good = srtp_protect(tx, header, payload, 0x11234, trailer);
    std::uint32_t sequence = 0x1234;
    auto const refused = [&](str const& packet) {
        return !srtp_unprotect(rx, packet, 12, sequence, got, trailer) && sequence == 0x1234 &&
               got == "before" && rx.roc == 1;
    };
    for (int n = 0; n < good.length(); n++)
        EXPECT_TRUE(refused(good.leftstr(n))) << n;
    for (int bit = 0; bit < 8 * good.length(); bit++) {
        bool const in_mki = bit / 8 == 28 || bit / 8 == 29;  // is not authenticated
        str bad = good;
        bad.set_character(bit / 8, static_cast<unsigned char>(bad[bit / 8] ^ 1 << bit % 8));
        EXPECT_TRUE(in_mki || refused(bad)) << bit;
    }
    EXPECT_TRUE(refused(srtp_protect(stranger, header, foreign, 0x11234, trailer)));
    EXPECT_TRUE(refused(good + str::x_00));
    for (int replay = 0; replay < 2; replay++) {
        EXPECT_TRUE(srtp_unprotect(rx, good, 12, sequence, got, trailer));
        EXPECT_EQ(audio, got);
        EXPECT_EQ(0x11234u, sequence);
    }
}

TEST(Srtp, HostileTrailersAndHeaders) {
    srtp_ctx rx = keyed(str());
    str payload("before");
    std::uint32_t sequence = 0;
    for (str const& packet : {str(), header, published_srtp})
        for (int const tag_length : {INT_MIN, -1, 1, 20, 21, 38, 65535, INT_MAX})
            for (int const mki : {0, 1, 300}) {
                srtp_trailer const trailer{tag_length, str('x', mki)};
                EXPECT_EQ(tag_length <= 0, srtp_unprotect(rx, packet, 12, sequence, payload, trailer));
                srtcp_unprotect(rx, packet, payload, trailer);
            }
    EXPECT_TRUE(
        srtp_unprotect(rx, published_srtp, 262200, sequence, payload, {10, str()}));  // longest header
    EXPECT_EQ(str(), payload);
}

TEST(Srtcp, WhatIsNotEncryptedIsLeftAlone) {
    srtp_ctx rx = keyed(str());
    str plain("before"), clear = published_srtcp;
    for (int n = 0; n < 22; n++)
        EXPECT_FALSE(srtcp_unprotect(rx, str('\xFF', n), plain, {10, str()})) << n;
    clear.set_character(24, 0x00);
    EXPECT_FALSE(srtcp_unprotect(rx, clear, plain, {10, str()}));
    EXPECT_EQ(str("before"), plain);
    EXPECT_TRUE(
        srtcp_unprotect(rx, str('\xFF', 22), plain, {10, str()}));  // nothing behind the first 8 bytes
    EXPECT_EQ(str('\xFF', 8), plain);
}
