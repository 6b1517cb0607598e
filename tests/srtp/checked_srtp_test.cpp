#include "srtp/checked_srtp.h"

#include <set>

#include "srtp/ghash.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/srtp/octets.h"

namespace {

str const ssrc = hex("CAFEBABE");
constexpr int header_bytes = 12;

/// Material's and tag's length of every transform.
constexpr struct { int material, tag; } suites[] = {{30, 10}, {30, 4}, {46, 10}, {46, 4}, {28, 16}, {44, 16}};

// ---- published vectors

TEST(checked_keys, aes_256) {  // FIPS-197 appendix C.3
    aes_key key;
    key.set(hex("000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"));
    v128_t block;
    v128_copy_octet_string(&block, hex("00112233445566778899AABBCCDDEEFF"));
    key.encrypt(block);
    EXPECT_EQ(hex("8EA2B7CA516745BFEAFC49904B496089"), str(block.octets(), 16));
}

TEST(checked_keys, counter_mode_with_256_bits) {  // RFC 6188 sections 7.1 and 7.2
    srtp_session_keys keys;
    keys.set(false, hex("57F82FE3613FD170A85EC93C40B1F0922EC4CB0DC025B58272147CC438944A98"),
             hex("F0F1F2F3F4F5F6F7F8F9FAFBFCFD"), str());
    EXPECT_EQ(hex("92BDD28A93C3F52511C677D08B5515A49DA71B2378A854F67050756DED165BAC63C4868B7096D88421B563B8C94C9A31"),
              keys.crypt(0, 0, str('\0', 48)));
    str const master =
        hex("F0F04914B513F2763A1B1FA130F10E2998F6F6E43E4309D1E622A0E332B9F1B63B04803DE51EE7C96423AB5B78D2");
    srtp_session_keys derived, published;
    derived.derive(srtp_suite::of(46, 10), master, srtp_session_keys::kind::rtp);
    published.set(false, hex("5BA1064E30EC51613CAD926C5A28EF731EC7FB397F70A960653CAF06554CD8C4"),
                  hex("FA31791685CA444A9E07C6C64E93"), hex("FD9C32D39ED5FBB5A9DC96B30818454D1313DC05"));
    EXPECT_EQ(published.crypt(1, 2, ssrc), derived.crypt(1, 2, ssrc));
    EXPECT_EQ(published.tag(1, 2, ssrc, ssrc, str()), derived.tag(1, 2, ssrc, ssrc, str()));
}

TEST(checked_keys, galois_counter_mode) {  // RFC 7714 sections 16.1.1 and 17.1
    srtp_session_keys keys;
    keys.set(true, hex("000102030405060708090A0B0C0D0E0F"), hex("517569642070726F2071756F"), str());
    str const header = hex("8040F17B8041F8D35501A0B2"),
              said =
                  hex("47616C6C696120657374206F6D6E697320646976697361"
                      "20696E207061727465732074726573"),
              encrypted = hex("F24DE3A3FB34DE6CACBA861C9D7E4BCABE633BD50D294E6F42A5F47A51C7D19B36DE3ADF8833");
    EXPECT_EQ(encrypted, keys.crypt(0x5501A0B2, 0xF17B, said));
    EXPECT_EQ(hex("899D7F27BEB16A9152CF765EE4390CCE"), keys.tag(0x5501A0B2, 0xF17B, header, encrypted, str()));
    str const report =
                  hex("4E5450314E545032525450200000042A0000E930"
                      "4C756E61DEADBEEFDEADBEEFDEADBEEFDEADBEEFDEADBEEF"),
              hidden =
                  hex("63E94885DCDAB67CA727D7662F6B7E997FF5C0F76C06F32DC676A5F1730D6FDA"
                      "4CE09B4686303DED0BB9275B");
    EXPECT_EQ(hidden, keys.crypt(0x4D617273, 0x5D4, report));
    EXPECT_EQ(hex("C84AA45896CF4D2FC5ABF87245D9EADE"),
              keys.tag(0x4D617273, 0x5D4, hex("81C8000D4D617273"), hidden, hex("800005D4")));
}

// ---- both ways with libsrtp2

struct both_ways {
    both_ways(dice& random, int material_bytes, srtp_trailer const& trailer)
        : key(random_octets(random, material_bytes)),
          libsrtp_sends(libsrtp_peer::sends, key, trailer.tag_length, trailer.mki),
          libsrtp_receives(libsrtp_peer::receives, key, trailer.tag_length, trailer.mki) {
        tx.set_keys(key, trailer);
        rx.set_keys(key, trailer);
    }
    void packet(dice& random, std::uint32_t sequence, str const& from = ssrc) {
        str const head = random_header(random, sequence, from), said = random_octets(random, random.below(200));
        str bytes = tx.protect(head, said, sequence), payload;
        ASSERT_TRUE(libsrtp_receives.unprotect(bytes)) << sequence;
        ASSERT_EQ(head + said, bytes);
        ASSERT_TRUE(libsrtp_sends.protect(bytes));
        std::uint32_t index = sequence & 0xFFFF;
        ASSERT_TRUE(rx.unprotect(bytes, head.length(), index, payload)) << sequence;
        ASSERT_TRUE(index == sequence && payload == said);
    }
    void report(dice& random) {
        str const plain = hex("81C80006") + ssrc + random_octets(random, 4 * random.below(20));
        str bytes = tx.protect_rtcp(plain), got;
        ASSERT_TRUE(libsrtp_receives.unprotect_rtcp(bytes));
        ASSERT_EQ(plain, bytes);
        ASSERT_TRUE(libsrtp_sends.protect_rtcp(bytes) && rx.unprotect_rtcp(bytes, got));
        ASSERT_EQ(plain, got);
        ASSERT_FALSE(rx.unprotect_rtcp(bytes, got));
    }

    str key;
    srtp_sender tx;
    srtp_receiver rx;
    libsrtp_peer libsrtp_sends, libsrtp_receives;
};

TEST(checked_peer, every_suite_over_rollovers_in_any_order) {
    dice random(21);
    for (auto const& [material, tag] : suites)
        for (int const mki : {0, 4}) {
            SCOPED_TRACE(testing::Message() << material << " bytes, tag " << tag << ", MKI " << mki);
            if (!libsrtp_peer::has(material, tag))
                continue;
            both_ways ends(random, material, {tag, random_octets(random, mki)});
            std::uint32_t sequence = 0x7000;
            while (sequence < 0x30000) {
                ends.packet(random, sequence + 1);
                for (std::uint32_t const late : {1000u, 0u, 999u})
                    ends.packet(random, sequence + 1002 - late);
                if (tag == 10 || (tag == 16) || mki == 0)
                    ends.report(random);  // else libsrtp2 looks for the MKI in another place
                sequence += 5000;
                if (testing::Test::HasFatalFailure())
                    return;
            }
        }
}

TEST(checked_peer, more_reports_than_16_bits_count) {
    dice random(22);
    both_ways ends(random, 30, {10, str()});
    for (int i = 0; i < 66000 && !testing::Test::HasFatalFailure(); i++)
        ends.report(random);
}

// An SSRC begins at rollover counter 0 wherever the sender's numbers stand, and goes on where it was.
TEST(checked_peer, streams_begin_and_return) {
    dice random(23);
    both_ways ends(random, 30, {10, str()});
    ends.packet(random, 40000);
    for (std::uint32_t const n : {0x19000u, 0x22000u}) {
        str const other = utils::int2str(n, 4), head = random_header(random, n, other);
        str bytes = ends.tx.protect(head, ssrc, n);
        ASSERT_TRUE(ends.libsrtp_receives.unprotect(bytes)) << n;
    }
    ends.packet(random, 40001);
}

// ---- an attacker

/// A sender's packets under the rules that the receiver must keep.
struct attacked {
    explicit attacked(dice& dealt, int material_bytes, int tag) : random(dealt) {
        str const key = random_octets(random, material_bytes);
        tx.set_keys(key, {tag, str()});
        rx.set_keys(key, {tag, str()});
    }
    bool accepts(str const& packet, std::uint32_t expected = 0) {
        str payload("before");
        std::uint32_t const number = static_cast<std::uint32_t>(packet[2] << 8 | packet[3]);
        std::uint32_t sequence = number;
        bool const accepted = rx.unprotect(packet, header_bytes, sequence, payload);
        if (accepted)
            EXPECT_TRUE(sequence == expected && payload == utils::int2str(expected, 4)) << sequence;
        else
            EXPECT_TRUE(sequence == number && payload == "before");
        return accepted;
    }
    str sent(std::uint32_t index) { return sent(tx, index); }
    static str sent(srtp_sender& sender, std::uint32_t index) {
        return sender.protect(hex("8000") + utils::int2str(index, 2) + str('t', 4) + ssrc, utils::int2str(index, 4),
                              index);
    }
    /// Changes a bit; one of the SSRC makes it another stream's.
    void forge(str packet) {
        int const bit = random.below(8 * packet.length());
        packet.set_character(bit / 8, static_cast<unsigned char>(packet[bit / 8] ^ 1 << bit % 8));
        EXPECT_FALSE(accepts(packet)) << "bit " << bit;
    }
    /// One packet, whether or not it came before; forgeries before and after it change nothing.
    void deliver(std::uint32_t index) {
        str const packet = sent(index);
        forge(packet);
        bool const expected = !came.count(index) && (came.empty() || index + 1024 > *came.rbegin());
        ASSERT_EQ(expected, accepts(packet, index)) << index << " after " << (came.empty() ? 0 : *came.rbegin());
        forge(packet);
        if (expected)
            came.insert(index);
        ASSERT_FALSE(accepts(packet)) << "replayed";
    }

    dice& random;
    srtp_sender tx;
    srtp_receiver rx;
    std::set<std::uint32_t> came;
};

// Two days of 50 packets a second: bursts that arrive in any order, twice, forged and replayed, and silence between.
TEST(checked_attack, forty_eight_hours_of_replays_forgeries_and_disorder) {
    constexpr std::uint32_t two_days = 48 * 3600 * 50;
    seed_range{31, 1}.roll([](dice& random) {
        for (auto const& [material, tag] : suites) {
            SCOPED_TRACE(testing::Message() << material << " bytes, tag " << tag);
            attacked stream(random, material, tag);
            std::vector<std::uint32_t> numbers{20000};
            while (numbers.back() < two_days && !testing::Test::HasFailure()) {
                stream.deliver(numbers.back());
                for (int burst = random.below(8); burst >= 0; burst--)
                    numbers.push_back(numbers.back() + static_cast<std::uint32_t>(random.between(1, 400)));
                for (int i = random.below(12); i >= 0; i--)
                    stream.deliver(
                        numbers[numbers.size() - 1 - random.word() % std::min<std::size_t>(numbers.size(), 12)]);
                numbers.push_back(numbers.back() + static_cast<std::uint32_t>(random.below(24000)));
            }
            EXPECT_GT(stream.came.size(), 300u);
        }
    });
}

TEST(checked_attack, reordered_by_a_thousand) {
    dice random(32);
    attacked stream(random, 30, 10);
    for (std::uint32_t const from : {500u, 30000u, 60000u, 64500u})
        for (std::uint32_t n = 0; n < 2000; n++) {
            std::uint32_t const index = from + (n < 1000 ? 1999 - n : n - 1000);  // the second half first, backwards
            ASSERT_EQ(n < 1000 || index + 1024 > from + 1999, stream.accepts(stream.sent(index), index)) << index;
        }
}

TEST(checked_attack, reports) {
    dice random(33);
    for (auto const& [material, tag] : suites) {
        attacked stream(random, material, tag);
        str const plain = hex("81C80006") + ssrc + random_octets(random, 44);
        str const bytes = stream.tx.protect_rtcp(plain), later = stream.tx.protect_rtcp(plain);
        str got("before");
        for (int bit = 0; bit < 8 * bytes.length(); bit++) {
            str bad = bytes;
            bad.set_character(bit / 8, static_cast<unsigned char>(bad[bit / 8] ^ 1 << bit % 8));
            ASSERT_FALSE(stream.rx.unprotect_rtcp(bad, got)) << bit;
        }
        for (int n = 0; n < bytes.length(); n++)
            ASSERT_FALSE(stream.rx.unprotect_rtcp(bytes.leftstr(n), got)) << n;
        EXPECT_EQ("before", got);
        for (str const& packet : {later, bytes}) {
            EXPECT_TRUE(stream.rx.unprotect_rtcp(packet, got) && got == plain);
            EXPECT_FALSE(stream.rx.unprotect_rtcp(packet, got)) << "replayed";
        }
    }
}

// The same keys again forget nothing; new ones take the sender that goes on and the one that begins anew, once each.
TEST(checked_attack, new_keys) {
    dice random(34);
    for (bool const begins_anew : {false, true}) {
        attacked stream(random, 30, 10);
        srtp_sender anew;
        str const key = random_octets(random, 30), other = random_octets(random, 30);
        stream.tx.set_keys(key, {10, str()});
        stream.rx.set_keys(key, {10, str()});
        for (std::uint32_t const index : {40000u, 60000u, 80000u})
            ASSERT_TRUE(stream.accepts(stream.sent(index), index));
        str const old = stream.sent(80001);
        stream.rx.set_keys(key, {10, str()});
        EXPECT_FALSE(stream.accepts(stream.sent(80000)));
        stream.rx.set_keys(other, {10, str()});
        EXPECT_FALSE(stream.accepts(old));
        srtp_sender& sender = begins_anew ? anew : stream.tx;
        sender.set_keys(other, {10, str()});
        std::uint32_t const from = begins_anew ? 0x3000 : 80002;
        for (std::uint32_t const index : {from, from + 1})
            ASSERT_TRUE(stream.accepts(attacked::sent(sender, index), index));
    }
}

}  // namespace
