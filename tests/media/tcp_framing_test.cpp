#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/tcp_framing.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/seed.h"

namespace {

using lines = std::vector<std::string>;

constexpr char wait[] = "8 need to wait for more data to arrive";

/// The message with which channel 3 hands data up.
std::string handed_up(std::string const& data, int tag = 13, bool framed = true) {
    return to_hex(element_of(15, from_hex("0004 0002 0003 0005 0006 0FA0 C0A80107") + element_of(tag, data) +
                                     (framed ? short_element(34, 1) : "")));
}

class framing : public media_fixture {
protected:
    framing() : media_fixture(8), sender(to_str(from_hex("C0A80107")), 4000) {}

    bool header(std::string& data, int tag = 13) {
        str bytes = to_str(data);
        bool const consumed = process_tcp_header(bytes, 3, sender, tag);
        data = to_string(bytes);
        return consumed;
    }

    ip_port sender;
};

TEST_F(framing, a_frame_is_six_bytes_and_the_packet) {
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str()))), "030000020000");
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str('\x80', 172)))).substr(0, 14), "030000AE00AC80");
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str('\x80', 65533)))).substr(0, 14), "0300FFFFFFFD80");
}

// Frames of these lengths lose the carry of their length field and with it most of the packet.
TEST_F(framing, what_was_framed_is_taken_out_again) {
    for (int n = 6; n < 1600; n++) {
        std::string packet(static_cast<std::size_t>(n), '\x80');
        packet.back() = '\x55';
        std::string data = to_string(frame_for_tcp(to_str(packet)));
        unsigned const field = static_cast<unsigned>(n) + 2;
        bool const carry_lost = (field & 0xFF) >= 252 && (field >> 8 & 1);
        ASSERT_FALSE(header(data)) << n;
        ASSERT_EQ(data.size(), packet.size() - (carry_lost ? 256 : 0)) << n;
        ASSERT_EQ(data, packet.substr(0, data.size())) << n;
    }
}

TEST_F(framing, fronts_of_a_stream) {
    std::string const stun = from_hex("030000160014 0001 0000 2112A442 0102030405060708090A0B0C");
    std::string const tail = from_hex("F1F2F3F4F5F6F7F8F9FAFBFCFD"), turn = from_hex("02000008") + tail;
    std::string const rtp = from_hex("8000 0001 00000002 00000003 AABB");
    struct {
        char const* what;
        std::string data;
        bool consumed;
        std::string left;
        std::string handed;  // empty: nothing
    } const table[] = {
        {"framed STUN, six bytes too many are dropped behind it", stun + tail, true, tail.substr(6), stun},
        {"TURN data unit, four bytes too many", turn, true, tail.substr(12), turn.substr(0, 12)},
        {"what follows the first frame is dropped", from_hex("03000010000E") + rtp + turn, false, rtp, ""},
        {"carry of the length lost: 0x102, not 0x202", from_hex("030001FE0000") + std::string(0x1FC, '\x80'),
         false, std::string(0x102 - 6, '\x80'), ""},
        {"high byte even: the carry is kept", from_hex("030002FE0000") + std::string(0x302 - 6, '\x80'),
         false, std::string(0x302 - 6, '\x80'), ""},
        {"a frame shorter than its header", from_hex("030000000000 40") + tail, false, "", ""},
        {"other second byte, unfinished", from_hex("0205000E") + tail, true, from_hex("0205000E") + tail, ""},
        {"other second byte, complete", from_hex("02050008") + tail, false, from_hex("02050008") + tail, ""},
    };
    for (auto const& [what, data, consumed, left, handed] : table) {
        std::string rest = data;
        EXPECT_EQ(header(rest, 14), consumed) << what;
        EXPECT_EQ(to_hex(rest), to_hex(left)) << what;
        lines expected;
        if (consumed)
            expected = {wait};
        if (!handed.empty())
            expected = {"8 TCP rec len turn_pdu " + std::to_string(handed.size()) + " " + to_hex(handed),
                        handed_up(handed, 14)};
        EXPECT_EQ(peer.transcript(), expected) << what;
    }
}

TEST_F(framing, reports_are_told_by_their_type) {
    for (int type = 0; type < 256; type++)
        EXPECT_EQ(process_tcp_rtcp(to_str(std::string{'\x80', static_cast<char>(type)})),
                  type >= 200 && type <= 204)
            << type;
    EXPECT_FALSE(process_tcp_rtcp(str::x_FF));
}

/// What channel 3 does with one piece of a stream, as log lines and messages: a list of rules on plain strings. All
/// payload types are unmapped, so RTP ends with its log line.
lines expected_of(std::string piece) {
    lines out;
    auto const byte = [&](std::size_t i) {
        return i < piece.size() ? static_cast<unsigned char>(piece[i]) : 0u;
    };
    for (int pass = 1; pass <= 10 && !piece.empty(); pass++) {
        if (piece.size() >= 12) {
            std::size_t const length = (byte(2) << 8) | (byte(3) + 4);
            bool const unit = byte(0) == 2, frame = byte(0) == 3 && byte(1) == 0;
            if ((unit || frame) && piece.size() < length) {
                out.insert(out.end(), {wait, "8 tcp control"});
                continue;
            }
            bool const stun = frame && length >= 7 && byte(6) < 0x40;
            if ((unit && byte(1) == 0) || stun) {
                std::string const front = piece.substr(0, length);
                std::size_t const next = length + (unit ? 4 : 6);
                piece = next < piece.size() ? piece.substr(next) : "";
                out.insert(out.end(),
                           {"8 TCP rec len turn_pdu " + std::to_string(length) + " " + to_hex(front),
                            handed_up(front), "8 tcp control"});
                continue;
            }
            if (frame)
                piece = length > 6 ? piece.substr(6, length - 6) : "";
        }
        if (byte(1) >= 200 && byte(1) <= 204) {
            out.push_back("8 rtcp " + to_hex(piece));
            std::string const copy = short_element(4, 3) + element_of(22, "c") + element_of(9, piece);
            out.push_back(byte(0) < 2 ? handed_up(piece, 14, false) : to_hex(element_of(14, copy)));
        } else if (byte(0) == 0x16) {
            out.insert(out.end(), {"8 pseudo tls", handed_up(piece)});
        } else if (byte(0) >> 6 == 2) {
            out.push_back("8 rtp " + to_hex(piece));
        } else {
            out.insert(out.end(), {"8 no rtp " + to_hex(piece), "8 loop count " + std::to_string(pass)});
            continue;
        }
        piece.clear();
        out.push_back("8 loop count " + std::to_string(pass));
    }
    return out;
}

/// A unit of a stream, whole.
std::string random_unit(dice& random) {
    std::string bytes;
    for (int n = random.chance(80) ? random.below(30) : random.between(500, 540); n > 0; n--)
        bytes += static_cast<char>(random.word());
    auto const size = static_cast<unsigned>(bytes.size()) + 12;
    std::string const frame = from_hex("0300") + be16(size + 2) + be16(size);
    std::string const rtp = from_hex("8012 0001 00000002 00000003") + bytes;
    std::string const rtcp = from_hex("81C8 0001 00000002 00000003") + bytes;
    std::string const stun = from_hex("0101 0000 2112A442 01020304") + bytes;
    switch (random.below(10)) {
        case 0: return frame + rtp;
        case 1: return frame + rtcp;
        case 2: return frame + stun;
        case 3: return from_hex("0200") + be16(size) + rtp;
        case 4: return from_hex("02") + bytes;
        case 5: return from_hex("16030100") + be16(size) + stun;
        case 6: return rtp;
        case 7: return rtcp;
        case 8: return from_hex("03") + bytes;
        default: return bytes;
    }
}

TEST_F(framing, streams_joined_and_cut_at_random) {
    channels[3].set_call_id(str("c"));
    seed_range{1, 120}.for_each([&](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        dice random(seed);
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
