// Streams between this module and libsrtp2, in both directions.

#include <vector>

#include "srtp/srtp.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/srtp/octets.h"

namespace {

str const ssrc = hex("0B1E55ED");

/// A header with a CSRC list and an extension of random length (RFC 3550 section 5.1).
str random_header(std::mt19937& random, std::uint32_t sequence, str const& own_ssrc) {
    int const csrcs = below(random, 4), extension = below(random, 3) - 1;
    str header(static_cast<unsigned char>(0x80 | csrcs | (extension < 0 ? 0 : 0x10)), 1);
    header += random_octets(random, 1) + utils::int2str(sequence, 2) + random_octets(random, 4) + own_ssrc +
              random_octets(random, 4 * csrcs);
    if (extension >= 0)
        header += random_octets(random, 2) + utils::int2str(static_cast<unsigned>(extension), 2) +
                  random_octets(random, 4 * extension);
    return header;
}

/// `count` packets from this sequence number on, about one in ten missing and one in ten late by one.
std::vector<std::uint32_t> lossy_order(std::mt19937& random, std::uint32_t from, int count) {
    std::vector<std::uint32_t> order{from};
    for (int i = 1; i < count; i++)
        if (random() % 10)
            order.push_back(from + static_cast<std::uint32_t>(i));
    for (size_t i = 1; i + 1 < order.size(); i++)
        if (random() % 10 == 0)
            std::swap(order[i], order[i + 1]), i++;
    return order;
}

/// From us to libsrtp2 and from libsrtp2 to us; with each packet a report, whose tag always has 10 bytes.
void exchange(unsigned seed, str const& key, srtp_trailer const& trailer, std::uint32_t from, int count) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", tag " << trailer.tag_length << ", MKI "
                                    << trailer.mki.length() << ", key " << key.length());
    std::mt19937 random(seed);
    srtp_ctx tx = keyed(key, ssrc), rx = keyed(key, str());
    libsrtp_peer receiver(libsrtp_peer::receives, key, trailer.tag_length, trailer.mki);
    libsrtp_peer sender(libsrtp_peer::sends, key, trailer.tag_length, trailer.mki);
    // An MKI without a tag behind it is not looked for.
    int const surplus = trailer.tag_length > 0 ? 0 : trailer.mki.length();
    unsigned report = 0;
    for (std::uint32_t const sequence : lossy_order(random, from, count)) {
        SCOPED_TRACE(sequence);
        str const header = random_header(random, sequence, ssrc);
        str const audio = random_octets(random, below(random, 70));
        str payload = audio, packet = srtp_protect(tx, header, payload, sequence, trailer);
        ASSERT_EQ(header.length() + audio.length() + trailer.tag_length + trailer.mki.length(),
                  packet.length());
        ASSERT_TRUE(receiver.unprotect(packet));
        ASSERT_EQ(header + audio, packet);

        std::uint32_t index = sequence & 0xFFFF;
        ASSERT_TRUE(sender.protect(packet));
        ASSERT_TRUE(srtp_unprotect(rx, packet, header.length(), index, payload, trailer));
        ASSERT_EQ(sequence, index);
        ASSERT_EQ(audio, payload.leftstr(payload.length() - surplus));

        str const compound = hex("81C80006") + ssrc + random_octets(random, 4 * below(random, 20));
        if (report > 65535 || (trailer.tag_length != 10 && !trailer.mki.empty()))
            continue;  // libsrtp2 looks for a report's MKI before a tag as long as RTP's
        packet = srtcp_protect(tx, compound, report, trailer.mki);
        ASSERT_TRUE(receiver.unprotect_rtcp(packet)) << "report " << report;
        ASSERT_EQ(compound, packet) << "report " << report;
        if (report++ == 0)
            continue;  // libsrtp2 begins with 1
        ASSERT_TRUE(sender.protect_rtcp(packet));
        ASSERT_TRUE(srtcp_unprotect(rx, packet, payload, {10, trailer.mki})) << "report " << report;
        ASSERT_EQ(compound, payload) << "report " << report;
    }
}

}  // namespace

TEST(SrtpPeer, WrapsTagLengthsMkisAndKeysOfAnyLength) {
    std::mt19937 random(7);
    exchange(8, random_octets(random, 30), {10, str()}, 65000, 75000);  // all indices of reports
    for (int tag_length = 0; tag_length <= 20; tag_length++)
        for (int const mki_length : {0, 1, 4, 128}) {
            srtp_trailer const trailer{tag_length, random_octets(random, mki_length)};
            // Without a tag the receiver cannot find out that the sender's numbers wrapped; neither can it with
            // tags that a wrong guess fits by chance.
            exchange(11, random_octets(random, 30), trailer, tag_length > 2 ? 65450 : 16384, 200);
        }
    for (int n = 0; n < 30; n++)
        exchange(14, random_octets(random, n), {4, str()}, 65530, 20);
}

TEST(SrtpPeer, OneStreamOverRolloversRestartsAndNewKeys) {
    std::mt19937 random(16);
    str key = random_octets(random, 30);
    srtp_ctx rx = keyed(key, str());
    struct {
        char const* ssrc;
        int new_key;  // 1: both sides; 2: the sender alone
        std::uint32_t sender_roc;
        bool accepted;
        std::uint32_t own_roc;
    } const steps[] = {
        {"00000001", 0, 0, true, 0}, {"00000001", 0, 1, true, 1},  {"00000001", 0, 0, true, 0},
        {"00000001", 0, 2, true, 2}, {"00000001", 0, 5, true, 5},  {"00000001", 0, 9, false, 5},
        {"00000001", 0, 4, true, 4}, {"00000001", 0, 0, true, 0},  {"00000002", 0, 3, true, 3},
        {"00000003", 0, 0, true, 0}, {"00000003", 0, 1, true, 1},  {"00000003", 1, 0, true, 0},
        {"00000003", 0, 1, true, 1}, {"00000003", 2, 1, false, 1}, {"00000003", 0, 1, true, 1},
        {"00000004", 1, 2, true, 2},
    };
    for (auto const& step : steps) {
        str const own_ssrc = hex(step.ssrc), other_key = random_octets(random, 30);
        if (step.new_key == 1) {
            key = other_key;
            srtp_init(rx, key.leftstr(16), key.substr(16), str());
            EXPECT_EQ(0u, rx.roc);
        }
        libsrtp_peer peer(libsrtp_peer::sends, step.new_key == 2 ? other_key : key, 10, str());
        str const header = random_header(random, 40000, own_ssrc);
        str first = header + str("first"), packet = header + str("audio"), payload;
        packet.set_character(3, static_cast<unsigned char>(packet[3] + 1));
        ASSERT_TRUE(peer.protect(first) && peer.set_roc(str2uint32(own_ssrc), step.sender_roc) &&
                    peer.protect(packet));
        std::uint32_t sequence = 40001;
        EXPECT_EQ(step.accepted, srtp_unprotect(rx, packet, header.length(), sequence, payload, {10, str()}))
            << step.sender_roc;
        EXPECT_EQ(step.own_roc, rx.roc);
        EXPECT_EQ(step.accepted ? "audio" : "", payload);
    }
}
