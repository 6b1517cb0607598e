#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/channel.h"
#include "srtp/aes_tables.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/seed.h"

namespace {

using lines = std::vector<std::string>;

bool const tables_ready = (aes_compute_tables(), true);

constexpr std::uint32_t first_ssrc = 0xAAAA0001, other_ssrc = 0xBBBB0002, own_ssrc = 0x11223344;

/// Channel 5 between two ends of libsrtp2: `sender` protects what it receives, `receiver` takes what it sends to the
/// socket `far`.
class secure : public media_fixture {
protected:
    secure() : media_fixture(-1), tested(channels[5]) { start(); }

    void start() {
        tested.init();
        tested.open(20000, 40000, 0);
        tested.set_codec(0, 0, -1, to_str(std::string(128, '\0')), 10);
        tested.set_ssrc(to_str(be32(own_ssrc)));
        tested.set_destination(far.address(), ip_port(), false);
    }
    static str material(int name) {
        return to_str(std::string(16, static_cast<char>(name)) + std::string(14, 's'));
    }
    void key(int receive, int transmit, int tag_length = 10, std::string const& mki = "") {
        tested.set_srtp(material(receive), material(transmit), tag_length, to_str(mki));
    }

    static std::string packet_of(int sequence, int name, std::uint32_t ssrc = first_ssrc) {
        rtp_packet packet;
        packet.sequence = static_cast<std::uint16_t>(sequence);
        packet.timestamp = static_cast<std::uint32_t>(sequence) * 80;
        packet.ssrc = ssrc;
        packet.payload = pcm_of(name);
        return packet.build();
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
        std::string const block = to_string(tested.get_samples());
        int const name = first_sample(block);
        EXPECT_EQ(block, pcm_of(name));
        return name;
    }
    int heard(libsrtp_peer& sender, int sequence, int name, std::uint32_t ssrc = first_ssrc) {
        return heard(protect(sender, packet_of(sequence, name, ssrc)));
    }
    /// One block is sent, and taken by the receiver.
    void expect_sent(libsrtp_peer& receiver, int name) {
        tested.process_audio(to_str(pcm_of(name)));
        std::vector<std::string> const datagrams = far.received(tested.get_fd_rtp4());
        ASSERT_EQ(datagrams.size(), 1u);
        str packet = to_str(datagrams[0]);
        ASSERT_EQ(datagrams[0].find(pcm_of(name)), std::string::npos);
        ASSERT_TRUE(receiver.unprotect(packet));
        rtp_packet const plain = rtp_packet::parse(to_string(packet));
        ASSERT_EQ(plain.ssrc, own_ssrc);
        ASSERT_EQ(plain.payload, pcm_of(name));
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

TEST_F(secure, both_directions_with_every_trailer) {
    for (int const tag_length : {0, 4, 10, 20})
        for (std::string const mki : {"", "K", "four", "a rather long identifier"}) {
            if (tag_length == 0 && !mki.empty())
                continue;  // without a tag nobody looks for one
            SCOPED_TRACE(std::to_string(tag_length) + " " + mki);
            start();
            key(1, 2, tag_length, mki);
            libsrtp_peer sender(libsrtp_peer::sends, material(1), tag_length, to_str(mki));
            libsrtp_peer receiver(libsrtp_peer::receives, material(2), tag_length, to_str(mki));
            notices();
            for (int i = 0; i < 20; i++) {
                ASSERT_EQ(heard(sender, 500 + i, 1 + i), 1 + i);
                expect_sent(receiver, 100 + i);
            }
            EXPECT_EQ(notices(), tag_length ? (lines{"0018", "001B"}) : lines{"0018"});
        }
}

TEST_F(secure, sent_numbers_wrap) {
    key(1, 2);
    libsrtp_peer receiver(libsrtp_peer::receives, material(2), 10, str());
    int previous = 0, wraps = 0;
    for (std::uint32_t sent = 0, got = 0; wraps < 2;) {
        for (int i = 0; i < 400; i++) {
            str payload = to_str(be32(sent++));
            tested.send_rtp(0, payload, true);
        }
        for (std::string const& datagram : far.received(tested.get_fd_rtp4())) {
            str packet = to_str(datagram);
            ASSERT_TRUE(receiver.unprotect(packet)) << got;
            rtp_packet const plain = rtp_packet::parse(to_string(packet));
            ASSERT_EQ(get_be32(plain.payload, 0), got++);
            wraps += plain.sequence < previous;
            previous = plain.sequence;
        }
        ASSERT_EQ(got, sent);
    }
}

// Dense around three wraps, with neighbours swapped; between them single packets, each a talk spurt of its own.
TEST_F(secure, received_numbers_wrap_in_any_order) {
    key(1, 2);
    libsrtp_peer sender(libsrtp_peer::sends, material(1), 10, str());
    auto const name = [](int number) { return number % 30000 + 1; };
    auto const protected_packet = [&](int number, bool marker) {
        std::string plain = packet_of(number, name(number));
        plain[1] = static_cast<char>(marker ? 0x80 : 0);
        return protect(sender, plain);
    };
    for (int number = 0x8000; number < 0x38000; number++) {
        int const from_wrap = (number + 0x8000) % 0x10000 - 0x8000;
        bool const dense = from_wrap > -300 && from_wrap < 300;
        if (!dense && number % 0x1000)
            continue;
        std::string const packet = protected_packet(number, !dense || from_wrap == -299);
        if (dense && (number % 7 == 0 || from_wrap == -1)) {
            std::string const next = protected_packet(++number, false);
            deliver(next);
            ASSERT_EQ(heard(packet), name(number - 1)) << number;
            ASSERT_EQ(first_sample(to_string(tested.get_samples())), name(number)) << number;
            at_ms += 10;
        } else {
            ASSERT_EQ(heard(packet), name(number)) << number;
        }
    }
}

TEST_F(secure, a_call_may_be_rekeyed) {
    key(1, 2);
    for (int round = 0; round < 4; round++) {
        int const rx = 1 + 2 * round, tx = 2 + 2 * round, tag_length = round == 2 ? 4 : 10;
        str const mki(round == 3 ? "id" : "");
        key(rx, tx, tag_length, to_string(mki));
        libsrtp_peer sender(libsrtp_peer::sends, material(rx), tag_length, mki);
        libsrtp_peer receiver(libsrtp_peer::receives, material(tx), tag_length, mki);
        notices();
        for (int i = 0; i < 5; i++) {
            ASSERT_EQ(heard(sender, 300 + 5 * round + i, 10 + i), 10 + i) << round;
            expect_sent(receiver, 20 + i);
        }
        EXPECT_EQ(notices(), round == 0 ? (lines{"0018", "001B"}) : lines{"001B"}) << round;
    }
    tested.set_srtp(str(), str(), 0, str());
    EXPECT_EQ(heard(packet_of(400, 77)), 77);
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

// Flipped, cut, replayed and foreign packets between every two good ones.
TEST_F(secure, hostile_packets_leave_the_stream_alone) {
    seed_range{1, 4}.for_each([&](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        dice random(seed);
        start();
        key(1, 2, 4);
        libsrtp_peer sender(libsrtp_peer::sends, material(1), 4, str());
        libsrtp_peer enemy(libsrtp_peer::sends, material(9), 4, str());
        std::vector<std::string> good;
        int foreign = 65400;
        for (int number = 65400; number < 65900; number++) {
            good.push_back(protect(sender, packet_of(number, number)));
            for (int n = random.below(6); n > 0; n--) {
                std::string bad = good.back();
                switch (random.below(5)) {
                    case 0:
                        bad[static_cast<std::size_t>(random.between(2, 175))] ^=
                            static_cast<char>(1 << random.below(8));
                        break;
                    case 1: bad.resize(static_cast<std::size_t>(random.below(176))); break;
                    case 2: bad += static_cast<char>(random.word()); break;
                    case 3: bad = protect(enemy, packet_of(++foreign, -1)); break;
                    default:
                        bad = good[static_cast<std::size_t>(random.below(static_cast<int>(good.size())))];
                }
                if (good.size() > 1 && bad != good.back())
                    deliver(bad);
            }
            ASSERT_EQ(heard(good.back()), static_cast<std::int16_t>(number)) << number;
        }
    });
}

TEST_F(secure, a_receive_key_alone_protects_reception_from_the_next_ssrc_on) {
    tested.set_srtp(material(1), str(), 10, str());
    libsrtp_peer sender(libsrtp_peer::sends, material(1), 10, str());
    EXPECT_EQ(heard(sender, 100, 1), 1);
    EXPECT_EQ(heard(packet_of(102, 3)), 0) << "plain packets are not accepted";
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
