#include "srtp/aes.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/support/media_fixture.h"

namespace {

bool const tables_ready = (aes_compute_tables(), true);

constexpr std::uint32_t first_ssrc = 0xAAAA0001, other_ssrc = 0xBBBB0002;

/// Channel 5 between two ends of libsrtp2: `sender` protects what it receives, `receiver` takes what it sends to the
/// socket `far`.
class secure : public media_fixture {
protected:
    secure() : tested(channels[5]) { start(); }

    void start() {
        begin_call(tested);
        tested.open(20000, 40000, 0);
        tested.set_destination(far.address(), ip_port(), false);
    }
    static str material(int name) { return to_str(std::string(16, static_cast<char>(name)) + std::string(14, 's')); }
    void key(int receive, int transmit, int tag_length = 10, std::string const& mki = "") {
        tested.set_srtp(material(receive), material(transmit), tag_length, to_str(mki));
    }

    static std::string packet_of(libsrtp_peer& sender, int sequence, int name, bool marker = false,
                                 std::uint32_t ssrc = first_ssrc) {
        rtp_packet packet = named_packet(sequence, name, ssrc);
        packet.marker = marker;
        str bytes = to_str(packet.build());
        EXPECT_TRUE(sender.protect(bytes));
        return to_string(bytes);
    }
    void deliver(std::string_view packet) {
        ip_port const from(str(127, 0, 0, 1), 4000);
        tested.process_rtp_data(to_str(packet), from, false, rtimestamp(at_ms * 1000000));
    }
    /// What is played after a packet arrived: the number that its samples are, 0 for silence.
    int heard(std::string_view packet) {
        deliver(packet);
        at_ms += 10;
        return play(tested);
    }
    int heard(libsrtp_peer& sender, int sequence, int name, std::uint32_t ssrc = first_ssrc) {
        return heard(packet_of(sender, sequence, name, false, ssrc));
    }
    /// The packets that were sent, as the receiver gets them.
    std::vector<rtp_packet> sent(libsrtp_peer& receiver) {
        std::vector<rtp_packet> packets;
        for (std::string const& datagram : far.received(tested.get_fd_rtp4())) {
            str packet = to_str(datagram);
            EXPECT_TRUE(receiver.unprotect(packet));
            packets.push_back(rtp_packet::parse(to_string(packet)));
            EXPECT_EQ(datagram.find(packets.back().payload), std::string::npos);
        }
        return packets;
    }
    /// What call control hears: that a stream begins, that it is verified.
    std::string notices() {
        std::string all;
        for (std::string const& report : peer.reports())
            all += to_hex(report.substr(0, 2)) + " ";
        return all;
    }

    /// The packet with this number is heard.
    void follows(libsrtp_peer& sender, int number, bool marker = false) {
        named++;
        newest = number;
        ASSERT_EQ(heard(packet_of(sender, number, named, marker)), named) << std::hex << number;
    }
    /// Packets far apart, each a talk spurt of its own.
    void leap(libsrtp_peer& sender, int to) {
        while (newest < to)
            follows(sender, std::min(newest + 0x3FFF, to), true);
    }

    channel& tested;
    udp_peer far;
    long long at_ms = 1000;
    int newest = 0x8000, named = 0;  // number and name of the last packet
};

TEST_F(secure, a_call_may_be_rekeyed_with_every_trailer) {
    for (int const tag_length : {10, 0, 4, 20, 10})
        for (char const* const mki : {"", "K", "four", "a rather long identifier"}) {
            if (tag_length == 0 && *mki)
                continue;  // without a tag nobody looks for one
            SCOPED_TRACE(std::to_string(tag_length) + " " + mki);
            bool const first = named == 0;
            unsigned const ssrc = 0x11223344u + static_cast<unsigned>(named);
            key(named, named + 1, tag_length, mki);
            tested.set_ssrc(to_str(be32(ssrc)));  // that of the cipher too
            libsrtp_peer sender(libsrtp_peer::sends, material(named), tag_length, str(mki));
            libsrtp_peer receiver(libsrtp_peer::receives, material(named + 1), tag_length, str(mki));
            std::string packet;
            for (int i = 0; i < 20; i++) {
                packet = packet_of(sender, ++newest, ++named);
                ASSERT_EQ(heard(packet), named);
                tested.process_audio(to_str(pcm_of(named)));
                std::vector<rtp_packet> const packets = sent(receiver);
                ASSERT_TRUE(packets.size() == 1 && packets[0].ssrc == ssrc && packets[0].payload == pcm_of(named));
            }
            EXPECT_EQ(heard(packet), 0) << "replayed";
            EXPECT_EQ(notices(), tag_length == 0 ? "" : first ? "0018 001B " : "001B ");
        }
    tested.set_srtp(str(), str(), 0, str());
    EXPECT_EQ(heard(named_packet(newest + 1, 77).build()), 77);
}

TEST_F(secure, sent_numbers_wrap) {
    key(1, 2);
    libsrtp_peer receiver(libsrtp_peer::receives, material(2));
    int previous = 0, wraps = 0;
    for (std::uint32_t number = 0, got = 0; wraps < 2;) {
        for (int i = 0; i < 400; i++) {
            str payload = to_str(be32(number++));
            tested.send_rtp(0, payload, true);
        }
        for (rtp_packet const& packet : sent(receiver)) {
            ASSERT_EQ(get_be32(packet.payload, 0), got++);
            wraps += packet.sequence < previous;
            previous = packet.sequence;
        }
        ASSERT_EQ(got, number);
    }
}

// Around three wraps, with neighbours swapped.
TEST_F(secure, received_numbers_wrap_in_any_order) {
    key(1, 2);
    libsrtp_peer sender(libsrtp_peer::sends, material(1));
    for (int wrap = 0x10000; wrap <= 0x30000; wrap += 0x10000)
        for (leap(sender, wrap - 300); newest < wrap + 300;) {
            if ((newest + 1) % 7 && newest + 2 != wrap) {
                follows(sender, newest + 1);
                continue;
            }
            std::string const late = packet_of(sender, newest + 1, named + 1);
            deliver(packet_of(sender, newest += 2, named + 2));
            ASSERT_EQ(heard(late), ++named) << newest;
            ASSERT_EQ(play(tested), ++named) << newest;
            at_ms += 10;
        }
}

/// With the extension `srtp`.
class checking : public secure {
protected:
    checking() {
        extensions.srtp = true;
        start();
    }
    ~checking() override { extensions = extension_set(); }
    void report(str const& compound) {
        tested.process_rtcp(compound, ip_port(str(127, 0, 0, 1), 4001), false, rtimestamp::now());
    }
};

TEST_F(checking, nothing_changes_before_the_tag_is_right) {
    for (int const material_bytes : {30, 46, 28, 44}) {
        SCOPED_TRACE(material_bytes);
        start();
        str const key('k', material_bytes), other('x', material_bytes);
        int const tag = material_bytes % 4 ? 10 : 16;
        if (!libsrtp_peer::has(material_bytes, tag))
            continue;
        tested.set_srtp(key, key, tag, str());
        libsrtp_peer sender(libsrtp_peer::sends, key, tag), receiver(libsrtp_peer::receives, key, tag),
            forger(libsrtp_peer::sends, other, tag);
        deliver(packet_of(forger, 500, 77));
        deliver(named_packet(500, 77).build());
        EXPECT_EQ(notices(), "") << "no stream begins";
        std::string const first = packet_of(sender, 65535, 1);
        EXPECT_EQ(heard(first), 1);
        EXPECT_EQ(notices(), "0018 001B ");
        at_ms += 500;
        deliver(packet_of(forger, 7, 77, false, other_ssrc));
        EXPECT_EQ(heard(first), 0) << "replayed into silence";
        EXPECT_EQ(notices(), "") << "nobody else is followed";
        EXPECT_EQ(heard(sender, 0, 2), 2) << "the counter of the stream stands";
        tested.set_srtp(key, key, tag, str());
        EXPECT_EQ(heard(first), 0) << "the same keys again forget nothing";
        at_ms += 200;
        EXPECT_EQ(heard(sender, 9, 3, other_ssrc), 3);
        tested.process_audio(to_str(pcm_of(4)));
        EXPECT_EQ(sent(receiver).at(0).payload, pcm_of(4));
        EXPECT_EQ(notices(), "0018 001B ");
    }
}

TEST_F(checking, reports_are_read_once_and_only_from_the_peer) {
    tested.set_call_id(str("call"));
    key(1, 2);
    libsrtp_peer sender(libsrtp_peer::sends, material(1)), forger(libsrtp_peer::sends, material(2));
    str const plain = to_str(from_hex("81C80006AAAA0001") + std::string(20, '\0'));
    str forged = plain, good = plain;
    ASSERT_TRUE(forger.protect_rtcp(forged) && sender.protect_rtcp(good));
    for (str const& packet : {plain, forged, good, good})
        report(packet);
    EXPECT_EQ(notices(), "000E ");
}

TEST_F(secure, a_receive_key_alone_protects_reception_from_the_next_ssrc_on) {
    key(9, 9);
    start();  // a call before had keys
    EXPECT_EQ(heard(named_packet(99, 1).build()), 1);
    tested.set_srtp(material(1), str(), 10, str());
    libsrtp_peer old(libsrtp_peer::sends, material(9)), sender(libsrtp_peer::sends, material(1));
    EXPECT_EQ(heard(old, 100, 2), 0);
    EXPECT_EQ(heard(sender, 100, 3), 3) << "a stream that was plain is keyed at once";
    EXPECT_EQ(heard(named_packet(102, 3).build()), 0) << "plain packets are not accepted";
    tested.process_audio(to_str(pcm_of(4)));
    EXPECT_EQ(rtp_packet::parse(far.received(tested.get_fd_rtp4()).at(0)).payload, pcm_of(4));
    tested.set_srtp(material(2), str(), 10, str());
    libsrtp_peer next(libsrtp_peer::sends, material(2));
    EXPECT_EQ(heard(next, 102, 6), 0);
    EXPECT_EQ(heard(sender, 102, 6), 6) << "the stream keeps the key it began with";
    at_ms += 200;
    EXPECT_EQ(heard(next, 200, 7, other_ssrc), 7);
}

}  // namespace
