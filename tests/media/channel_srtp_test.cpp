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
    static str material(int name) {
        return to_str(std::string(16, static_cast<char>(name)) + std::string(14, 's'));
    }
    void key(int receive, int transmit, int tag_length = 10, std::string const& mki = "") {
        tested.set_srtp(material(receive), material(transmit), tag_length, to_str(mki));
    }

    static std::string protect(libsrtp_peer& sender, std::string const& packet) {
        str bytes = to_str(packet);
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
        return heard(protect(sender, named_packet(sequence, name, ssrc).build()));
    }
    /// The packets that were sent, as the receiver gets them.
    std::vector<rtp_packet> sent(libsrtp_peer& receiver) {
        std::vector<rtp_packet> packets;
        for (std::string const& datagram : far.received(tested.get_fd_rtp4())) {
            str packet = to_str(datagram);
            EXPECT_TRUE(receiver.unprotect(packet));
            packets.push_back(rtp_packet::parse(to_string(packet)));
            EXPECT_EQ(datagram.find(packets.back().payload), std::string::npos);
            EXPECT_EQ(packets.back().ssrc, 0x11223344u);
        }
        return packets;
    }
    lines notices() {
        lines all;
        for (std::string const& report : peer.reports())
            all.push_back(to_hex(report.substr(0, 2)));
        return all;
    }

    channel& tested;
    udp_peer far;
    long long at_ms = 1000;
};

TEST_F(secure, a_call_may_be_rekeyed_with_every_trailer) {
    int sequence = 500, name = 0;
    lines expected{"0018", "001B"};
    for (int const tag_length : {10, 0, 4, 20, 10})
        for (std::string const mki : {"", "K", "four", "a rather long identifier"}) {
            if (tag_length == 0 && !mki.empty())
                continue;  // without a tag nobody looks for one
            SCOPED_TRACE(std::to_string(tag_length) + " " + mki);
            key(name, name + 1, tag_length, mki);
            libsrtp_peer sender(libsrtp_peer::sends, material(name), tag_length, to_str(mki));
            libsrtp_peer receiver(libsrtp_peer::receives, material(name + 1), tag_length, to_str(mki));
            std::string packet;
            for (int i = 0; i < 20; i++) {
                packet = protect(sender, named_packet(++sequence, ++name).build());
                ASSERT_EQ(heard(packet), name);
                tested.process_audio(to_str(pcm_of(name)));
                std::vector<rtp_packet> const packets = sent(receiver);
                ASSERT_EQ(packets.size(), 1u);
                ASSERT_EQ(packets[0].payload, pcm_of(name));
            }
            EXPECT_EQ(heard(packet), 0) << "replayed";
            EXPECT_EQ(notices(), tag_length == 0 ? lines{} : expected);
            expected = {"001B"};
        }
    tested.set_srtp(str(), str(), 0, str());
    EXPECT_EQ(heard(named_packet(sequence + 1, 77).build()), 77);
}

TEST_F(secure, a_new_ssrc_is_that_of_the_cipher_too) {
    key(1, 2);
    tested.set_ssrc(to_str(from_hex("55667788")));
    libsrtp_peer receiver(libsrtp_peer::receives, material(2), 10, str());
    tested.process_audio(to_str(pcm_of(9)));
    str packet = to_str(far.received(tested.get_fd_rtp4()).at(0));
    ASSERT_TRUE(receiver.unprotect(packet));
    rtp_packet const sent = rtp_packet::parse(to_string(packet));
    EXPECT_EQ(sent.ssrc, 0x55667788u);
    EXPECT_EQ(sent.payload, pcm_of(9));
}

TEST_F(secure, sent_numbers_wrap) {
    key(1, 2);
    libsrtp_peer receiver(libsrtp_peer::receives, material(2), 10, str());
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

// Dense around three wraps, with neighbours swapped; between them single packets, each a talk spurt of its own.
TEST_F(secure, received_numbers_wrap_in_any_order) {
    key(1, 2);
    libsrtp_peer sender(libsrtp_peer::sends, material(1), 10, str());
    auto const name = [](int number) { return number % 30000 + 1; };
    auto const protected_packet = [&](int number, bool marker) {
        rtp_packet packet = named_packet(number, name(number));
        packet.marker = marker;
        return protect(sender, packet.build());
    };
    for (int number = 0x8000; number < 0x38000; number++) {
        int const from_wrap = (number + 0x8000) % 0x10000 - 0x8000;
        bool const dense = from_wrap > -300 && from_wrap < 300;
        bool const swapped = dense && (number % 7 == 0 || from_wrap == -1);
        if (!dense && number % 0x1000)
            continue;
        std::string const packet = protected_packet(number, !dense || from_wrap == -299);
        if (swapped)
            deliver(protected_packet(number + 1, false));
        ASSERT_EQ(heard(packet), name(number)) << number;
        if (swapped) {
            ASSERT_EQ(play(tested), name(++number)) << number;
            at_ms += 10;
        }
    }
}

// A new stream starts at rollover counter 0 with the same keys, whatever the old one had reached.
TEST_F(secure, another_ssrc_takes_over) {
    key(1, 2);
    libsrtp_peer sender(libsrtp_peer::sends, material(1), 10, str());
    heard(sender, 65535, 1);
    EXPECT_EQ(heard(sender, 0, 2), 2);
    EXPECT_EQ(heard(sender, 40000, 3, other_ssrc), 0) << "while the old one lives, it stays";
    at_ms += 200;
    EXPECT_EQ(heard(sender, 40001, 4, other_ssrc), 4);
    EXPECT_EQ(heard(sender, 40002, 5, other_ssrc), 5);
    start();
    key(1, 2);
    EXPECT_EQ(heard(sender, 7, 6, 0xCCCC0003), 6);
}

/// A packet of 10 ms from a sender that has come this far.
std::string packet_of(srtp_ctx& sender, std::uint32_t sequence, int name, bool marker = false) {
    rtp_packet packet = named_packet(static_cast<std::uint16_t>(sequence), name);
    packet.marker = marker;
    std::string const plain = packet.build();
    str payload = to_str(plain.substr(12));
    sender.ssrc = to_str(be32(first_ssrc));
    return to_string(srtp_protect(sender, to_str(plain.substr(0, 12)), payload, sequence, {10, str()}));
}

TEST_F(secure, nothing_is_accepted_without_a_key_of_this_call) {
    key(9, 9);
    start();  // a call before had keys
    EXPECT_EQ(heard(named_packet(100, 1).build()), 1);
    tested.set_srtp(material(1), str(), 10, str());
    srtp_ctx unkeyed, old, right;
    srtp_key(old, material(9), str());
    srtp_key(right, material(1), str());
    EXPECT_EQ(heard(packet_of(unkeyed, 101, 2)), 0);
    EXPECT_EQ(heard(packet_of(old, 101, 3)), 0);
    EXPECT_EQ(heard(packet_of(right, 101, 4)), 4) << "a stream that was plain is keyed at once";
}

// The sender's counter stands at 5, after 87 minutes of 50 packets a second.
TEST_F(secure, the_rollover_counter_outlives_forged_packets_and_new_keys) {
    srtp_ctx first, second, wrong;
    srtp_key(first, material(1), str());
    srtp_key(second, material(2), str());
    srtp_key(wrong, material(3), str());
    std::uint32_t number = 0x8000;
    int name = 1;
    auto const go_on = [&](srtp_ctx& sender, int packets) {
        for (int i = 0; i < packets; i++, name++)
            ASSERT_EQ(heard(packet_of(sender, ++number, name)), name) << std::hex << number;
    };
    key(1, 9);
    while (number < 0x50000)
        ASSERT_EQ(heard(packet_of(first, number += 0x3FFF, ++name, true)), name);
    go_on(first, 20);
    at_ms += 110;
    EXPECT_EQ(heard(named_packet(7, 77, other_ssrc).build()), 0);
    EXPECT_EQ(heard(packet_of(wrong, number + 1, 77)), 0);
    go_on(first, 20);
    number |= 0xFFFF;
    at_ms += 110;
    deliver(named_packet(7, 77, other_ssrc).build());
    go_on(first, 3);  // and wraps meanwhile
    key(2, 9);
    EXPECT_EQ(heard(packet_of(first, number + 1, 77)), 0) << "under the old key";
    go_on(second, 20);
}

TEST_F(secure, a_receive_key_alone_protects_reception_from_the_next_ssrc_on) {
    tested.set_srtp(material(1), str(), 10, str());
    libsrtp_peer sender(libsrtp_peer::sends, material(1), 10, str());
    EXPECT_EQ(heard(sender, 100, 1), 1);
    EXPECT_EQ(heard(named_packet(102, 3).build()), 0) << "plain packets are not accepted";
    tested.process_audio(to_str(pcm_of(4)));
    EXPECT_EQ(rtp_packet::parse(far.received(tested.get_fd_rtp4()).at(0)).payload, pcm_of(4));
    tested.set_srtp(material(2), str(), 10, str());
    libsrtp_peer next(libsrtp_peer::sends, material(2), 10, str());
    EXPECT_EQ(heard(next, 102, 6), 0);
    EXPECT_EQ(heard(sender, 102, 6), 6) << "the stream keeps the key it began with";
    at_ms += 200;
    EXPECT_EQ(heard(next, 200, 7, other_ssrc), 7);
}

}  // namespace
