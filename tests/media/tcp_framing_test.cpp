#include "media/tcp_framing.h"
#include "media/demultiplexing.h"
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

/// What channel 3 does with one piece of a stream, as log lines and messages: a list of rules on plain strings. All
/// payload types are unmapped, so RTP ends with its log line.
framing::lines expected_of(std::string piece) {
    framing::lines out;
    auto const byte = [&](std::size_t i) { return i < piece.size() ? static_cast<unsigned char>(piece[i]) : 0u; };
    auto const handed_up = [](std::string const& data, int tag = 13, bool framed = true) {
        std::string const mark = framed ? short_element(34, 1) : "";
        return to_hex(
            element_of(15, from_hex("0004 0002 0003 0005 0006 0FA0 C0A80107") + element_of(tag, data) + mark));
    };
    for (int pass = 1; pass <= 10 && !piece.empty(); pass++) {
        std::size_t const length = (byte(2) << 8) | (byte(3) + 4);
        bool const unit = byte(0) == 2 && piece.size() >= 12;
        bool const frame = byte(0) == 3 && byte(1) == 0 && piece.size() >= 12;
        if ((unit || frame) && piece.size() < length) {
            out.insert(out.end(), {"8 need to wait for more data to arrive", "8 tcp control"});
            continue;
        }
        if ((unit && byte(1) == 0) || (frame && length >= 7 && byte(6) < 0x40)) {  // TURN, STUN
            std::string const front = piece.substr(0, length);
            piece.erase(0, length + (unit ? 4 : 6));
            out.insert(out.end(), {"8 TCP rec len turn_pdu " + std::to_string(length) + " " + to_hex(front),
                                   handed_up(front), "8 tcp control"});
            continue;
        }
        if (frame)
            piece = length > 6 ? piece.substr(6, length - 6) : "";
        bool taken = true;
        if (byte(1) >= 200 && byte(1) <= 204) {
            std::string const copy = short_element(4, 3) + element_of(22, "c") + element_of(9, piece);
            out.insert(out.end(), {"8 rtcp " + to_hex(piece),
                                   byte(0) < 2 ? handed_up(piece, 14, false) : to_hex(element_of(14, copy))});
        } else if (byte(0) == 0x16) {
            out.insert(out.end(), {"8 pseudo tls", handed_up(piece)});
        } else {
            taken = byte(0) >> 6 == 2;
            out.push_back((taken ? "8 rtp " : "8 no rtp ") + to_hex(piece));
        }
        out.push_back("8 loop count " + std::to_string(pass));
        if (taken)
            break;
    }
    return out;
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

TEST_F(framing, streams_joined_and_cut_at_random) {
    channels[3].set_call_id(str("c"));
    ip_port const sender(to_str(from_hex("C0A80107")), 4000);
    seed_range{1, 120}.roll([&](dice& random) {
        std::string stream;
        for (int units = random.between(1, 12); units > 0; units--)
            stream += random_unit(random);
        while (!stream.empty()) {
            auto const n = static_cast<std::size_t>(random.between(1, random.chance(50) ? 40 : 800));
            std::string const piece = stream.substr(0, n);
            channels[3].process_rtp(to_str(piece), sender, true, rtimestamp());
            ASSERT_EQ(peer.transcript(), expected_of(piece)) << to_hex(piece);
            stream.erase(0, n);
        }
    });
}

}  // namespace
