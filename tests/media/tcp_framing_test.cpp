#include "media/tcp_framing.h"
#include "media/demultiplexing.h"
#include "tests/support/digest.h"
#include "tests/support/media_fixture.h"
#include "tests/support/seed.h"

namespace {

struct framing : media_fixture {
    framing() : media_fixture(8) {}
};

// Frames of some lengths lose the carry of their length field and with it most of the packet.
TEST_F(framing, what_was_framed_is_taken_out_again) {
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str()))), "030000020000");
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str('\x80', 172)))).substr(0, 14), "030000AE00AC80");
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str('\x80', 65533)))).substr(0, 14), "0300FFFFFFFD80");
    for (int n = 6; n < 1600; n++) {
        str const packet = str('\x80', n - 1) + str("U");
        tcp_unit const unit = parse_tcp_unit(frame_for_tcp(packet));
        bool const carry_lost = (n + 2) % 512 >= 508;
        ASSERT_EQ(unit.what, tcp_unit::kind::packet) << n;
        ASSERT_TRUE(unit.data == packet.leftstr(n - (carry_lost ? 256 : 0))) << n;
    }
}

TEST_F(framing, reports_are_told_by_their_type) {
    for (int type = 0; type < 256; type++)
        EXPECT_EQ(process_tcp_rtcp(to_str(std::string{'\x80', static_cast<char>(type)})), type >= 200 && type <= 204)
            << type;
    EXPECT_FALSE(process_tcp_rtcp(str::x_FF));
}

/// A unit of a stream, whole.
std::string random_unit(dice& random) {
    std::string bytes;
    for (int n = random.chance(80) ? random.below(30) : random.between(500, 540); n > 0; n--)
        bytes += static_cast<char>(random.word());
    auto const size = static_cast<unsigned>(bytes.size()) + 12;
    std::string const any_size = be16(static_cast<unsigned>(random.below(40)));
    std::string const frame = from_hex("0300") + be16(size + 2) + be16(size);
    std::string const rtp = from_hex("8012 0001 00000002 00000003") + bytes;
    std::string const rtcp = from_hex("81C8 0001 00000002 00000003") + bytes;
    std::string const stun = from_hex("0101 0000 2112A442 01020304") + bytes;
    std::string const turn = from_hex("0200") + be16(size) + rtp, tls = from_hex("16030100") + be16(size) + stun;
    std::string const units[] = {frame + rtp,
                                 frame + rtcp,
                                 frame + stun,
                                 turn,
                                 tls,
                                 rtp,
                                 rtcp,
                                 bytes,
                                 '\2' + bytes,
                                 '\3' + bytes,
                                 from_hex("0300") + any_size + bytes,
                                 from_hex("0205") + any_size + bytes};
    return units[random.below(12)];
}

// What channel 3 does with each piece, as log lines and messages. They agreed with a list of rules on plain strings: of
// a piece, up to ten units are looked at; TURN and STUN go to call control, what is incomplete waits, RTCP and TLS are
// told by their first bytes. All payload types are unmapped, so RTP ends with its log line.
TEST_F(framing, streams_joined_and_cut_at_random) {
    channels[3].set_call_id(str("c"));
    ip_port const sender(to_str(from_hex("C0A80107")), 4000);
    digest said;
    for (unsigned seed = 1; seed <= 120; seed++) {
        dice random(seed);
        std::string stream;
        for (int units = random.between(1, 12); units > 0; units--)
            stream += random_unit(random);
        while (!stream.empty()) {
            auto const n = static_cast<std::size_t>(random.between(1, random.chance(50) ? 40 : 800));
            channels[3].process_rtp(to_str(stream.substr(0, n)), sender, true, rtimestamp());
            for (std::string const& line : peer.transcript())
                said.add(line + "\n");
            stream.erase(0, n);
        }
    }
    EXPECT_EQ(said.value, 0x9f576ee33dc4fd05u);
}

}  // namespace
