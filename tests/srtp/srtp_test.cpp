#include "srtp/srtp.h"

#include <climits>

#include "lib/bytes.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/srtp/octets.h"

namespace {

/// One direction under 16 bytes of master key and 14 of master salt; those missing at the end are zero.
srtp_ctx keyed(str const& key, str const& own_ssrc) {
    srtp_ctx context;
    srtp_init(context, key.substr(0, 16), key.substr(16, 14), own_ssrc);
    return context;
}

// The packets with which libsrtp2 checks itself, under the keys of RFC 3711 appendix B.3.
str const b3_key = hex("E1F97A0D3E018BE0D64FA32C06DE41390EC675AD498AFEEBB6960B3AABE6");
str const ssrc = hex("CAFEBABE"), audio('\xAB', 16), header = hex("800F1234DECAFBADCAFEBABE");
str const compound = hex("81C8000BCAFEBABE") + audio;
str const published_srtp = header + hex("4E55DC4CE79978D88CA4D215949D2402B78D6ACC99EA179B8DBB");
str const published_srtcp = hex("81C8000BCAFEBABE7128035BE487B9BDBEF89041F977A5A880000001993E08CD54D6C1230798");

/// Both directions under that key.
struct srtp_packets : testing::Test {
    srtp_ctx tx = keyed(b3_key, ssrc), rx = keyed(b3_key, str());
    str payload = audio, got = str("before");
};

TEST_F(srtp_packets, published_packets) {
    EXPECT_EQ(published_srtp, srtp_protect(tx, header, payload, 0x1234, {10, str()}));
    EXPECT_EQ(published_srtp.substr(12, 16), payload);
    std::uint32_t sequence = 0x71234;
    EXPECT_TRUE(srtp_unprotect(rx, published_srtp, 12, sequence, got, {10, str()}));
    EXPECT_EQ(audio, got);
    EXPECT_EQ(0x1234u, sequence);  // the rollover counter is the proven one
    EXPECT_EQ(published_srtcp, srtcp_protect(tx, compound, 1, str()));
    for (auto const& [bytes, tag] : {std::pair(38, 10), std::pair(32, 4)}) {
        EXPECT_TRUE(srtcp_unprotect(rx, published_srtcp.leftstr(bytes), got, {tag, str()}));
        EXPECT_EQ(compound, got);
    }
    EXPECT_EQ(hex("8000FFFF"), srtcp_protect(tx, compound, 65535, hex("77")).substr(24, 4));
}

TEST_F(srtp_packets, damaged_packets_leave_the_stream_alone) {
    srtp_trailer const trailer{10, hex("0102")};
    rx.roc = 1;
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

TEST_F(srtp_packets, hostile_trailers_and_headers) {
    std::uint32_t sequence = 0;
    for (str const& packet : {str(), header, published_srtp})
        for (int const tag_length : {INT_MIN, -1, 1, 20, 21, 38, 65535, INT_MAX})
            for (int const mki : {0, 1, 300}) {
                srtp_trailer const trailer{tag_length, str('x', mki)};
                EXPECT_EQ(tag_length <= 0, srtp_unprotect(rx, packet, 12, sequence, got, trailer));
                srtcp_unprotect(rx, packet, got, trailer);
            }
    int const longest_header = 262200;
    EXPECT_TRUE(srtp_unprotect(rx, published_srtp, longest_header, sequence, got, {10, str()}));
    EXPECT_EQ(str(), got);
}

TEST_F(srtp_packets, reports_that_are_not_encrypted_are_left_alone) {
    str clear = published_srtcp;
    for (int n = 0; n < 22; n++)
        EXPECT_FALSE(srtcp_unprotect(rx, str('\xFF', n), got, {10, str()})) << n;
    clear.set_character(24, 0x00);
    EXPECT_FALSE(srtcp_unprotect(rx, clear, got, {10, str()}));
    EXPECT_EQ(str("before"), got);
    EXPECT_TRUE(srtcp_unprotect(rx, str('\xFF', 22), got, {10, str()}));  // 8 bytes, index and tag
    EXPECT_EQ(str('\xFF', 8), got);
}

// ---- streams between this module and libsrtp2, in both directions

/// `count` packets each way, one in ten missing and one in ten late; with each a report, whose tag has 10 bytes.
void exchange(str const& key, srtp_trailer const& trailer, std::uint32_t from, int count) {
    SCOPED_TRACE(testing::Message() << "tag " << trailer.tag_length << ", MKI " << trailer.mki.length() << ", key "
                                    << key.length());
    dice random(11);
    std::vector<std::uint32_t> order{from};
    for (int i = 1; i < count; i++)
        if (!random.chance(10))
            order.push_back(from + static_cast<std::uint32_t>(i));
    for (std::size_t i = 1; i + 1 < order.size(); i++)
        if (random.chance(10))
            std::swap(order[i], order[i + 1]), i++;
    srtp_ctx tx = keyed(key, ssrc), rx = keyed(key, str());
    libsrtp_peer receiver(libsrtp_peer::receives, key, trailer.tag_length, trailer.mki);
    libsrtp_peer sender(libsrtp_peer::sends, key, trailer.tag_length, trailer.mki);
    // An MKI without a tag behind it is not looked for.
    int const surplus = trailer.tag_length > 0 ? 0 : trailer.mki.length();
    unsigned report = 0;
    for (std::uint32_t const sequence : order) {
        SCOPED_TRACE(sequence);
        str const head = random_header(random, sequence, ssrc), said = random_octets(random, random.below(70));
        str payload = said, packet = srtp_protect(tx, head, payload, sequence, trailer);
        int const trailer_bytes = trailer.tag_length + trailer.mki.length();
        ASSERT_EQ(head.length() + said.length() + trailer_bytes, packet.length());
        ASSERT_TRUE(receiver.unprotect(packet));
        ASSERT_EQ(head + said, packet);

        std::uint32_t index = sequence & 0xFFFF;
        ASSERT_TRUE(sender.protect(packet));
        ASSERT_TRUE(srtp_unprotect(rx, packet, head.length(), index, payload, trailer));
        ASSERT_EQ(sequence, index);
        ASSERT_EQ(said, payload.leftstr(payload.length() - surplus));

        str const plain = hex("81C80006") + ssrc + random_octets(random, 4 * random.below(20));
        if (report > 65535 || (trailer.tag_length != 10 && !trailer.mki.empty()))
            continue;  // libsrtp2 looks for a report's MKI before a tag as long as RTP's
        packet = srtcp_protect(tx, plain, report, trailer.mki);
        ASSERT_TRUE(receiver.unprotect_rtcp(packet)) << "report " << report;
        ASSERT_EQ(plain, packet) << "report " << report;
        if (report++ == 0)
            continue;  // libsrtp2 begins with 1
        ASSERT_TRUE(sender.protect_rtcp(packet));
        ASSERT_TRUE(srtcp_unprotect(rx, packet, payload, {10, trailer.mki})) << "report " << report;
        ASSERT_EQ(plain, payload) << "report " << report;
    }
}

TEST(srtp_peer, wraps_tag_lengths_mkis_and_keys_of_any_length) {
    dice random(7);
    exchange(random_octets(random, 30), {10, str()}, 65000, 75000);  // all indices of reports
    for (int tag_length = 0; tag_length <= 20; tag_length++)
        for (int const mki_length : {0, 1, 4, 128})
            // Without a tag the receiver cannot find out that the sender's numbers wrapped; neither can it with
            // tags that a wrong guess fits by chance.
            exchange(random_octets(random, 30), {tag_length, random_octets(random, mki_length)},
                     tag_length > 2 ? 65450 : 16384, 200);
    for (int n = 0; n < 30; n++)
        exchange(random_octets(random, n), {4, str()}, 65530, 20);
}

TEST(srtp_peer, one_stream_over_rollovers_restarts_and_new_keys) {
    dice random(16);
    str key = random_octets(random, 30);
    srtp_ctx rx = keyed(key, str());
    struct {
        unsigned ssrc;
        int new_key;  // 1: both sides; 2: the sender alone
        std::uint32_t sender_roc;
        bool accepted;
    } const steps[] = {{1, 0, 0, true}, {1, 0, 1, true},  {1, 0, 0, true}, {1, 0, 2, true},
                       {1, 0, 5, true}, {1, 0, 9, false}, {1, 0, 4, true}, {1, 0, 0, true},
                       {2, 0, 3, true}, {3, 0, 0, true},  {3, 0, 1, true}, {3, 1, 0, true},
                       {3, 0, 1, true}, {3, 2, 1, false}, {3, 0, 1, true}, {4, 1, 2, true}};
    for (auto const& step : steps) {
        str const other_key = random_octets(random, 30);
        if (step.new_key == 1) {
            key = other_key;
            srtp_init(rx, key.leftstr(16), key.substr(16), str());
            EXPECT_EQ(0u, rx.roc);
        }
        std::uint32_t const own_roc = step.accepted ? step.sender_roc : rx.roc;
        libsrtp_peer peer(libsrtp_peer::sends, step.new_key == 2 ? other_key : key);
        str const head = random_header(random, 40000, utils::int2str(step.ssrc, 4));
        str first = head + str("first"), packet = head + str("audio"), payload;
        packet.set_character(3, static_cast<unsigned char>(packet[3] + 1));
        ASSERT_TRUE(peer.protect(first) && peer.set_roc(step.ssrc, step.sender_roc) && peer.protect(packet));
        std::uint32_t sequence = 40001;
        EXPECT_EQ(step.accepted, srtp_unprotect(rx, packet, head.length(), sequence, payload, {10, str()}));
        EXPECT_EQ(own_roc, rx.roc) << step.sender_roc;
        EXPECT_EQ(step.accepted ? "audio" : "", payload);
    }
}

}  // namespace
