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

class framing : public media_fixture {
protected:
    framing() : media_fixture(8), sender(to_str(from_hex("C0A80107")), 4000) {}

    bool header(std::string& data, int tag = 13) {
        str bytes = to_str(data);
        bool const consumed = process_tcp_header(bytes, 3, sender, tag);
        data = to_string(bytes);
        return consumed;
    }
    /// The message with which channel 3 hands data up.
    static std::string handed_up(std::string const& data, int tag = 13) {
        return to_hex(element_of(15, from_hex("0004 0002 0003 0005 0006 0FA0 C0A80107") +
                                         element_of(tag, data) + short_element(34, 1)));
    }

    ip_port sender;
};

TEST_F(framing, a_frame_is_six_bytes_and_the_packet) {
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str()))), "030000020000");
    for (int const n : {1, 12, 172, 250, 251, 252, 253, 254, 255, 256, 1500, 65533}) {
        std::string const packet(static_cast<std::size_t>(n), '\x80');
        std::string const frame = to_string(frame_for_tcp(to_str(packet)));
        EXPECT_EQ(to_hex(frame), to_hex(from_hex("0300") + be16(static_cast<unsigned>(n) + 2) +
                                        be16(static_cast<unsigned>(n)) + packet));
    }
    EXPECT_EQ(to_hex(to_string(frame_for_tcp(str('\x80', 172)))).substr(0, 12), "030000AE00AC");
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
    std::string const stun = from_hex("0001 0000 2112A442 0102030405060708090A0B0C");
    std::string const tail = from_hex("F1F2F3F4F5F6F7F8F9FAFBFCFD");
    std::string const rtp = from_hex("8000 0001 00000002 00000003 AABB");
    struct {
        char const* what;
        std::string data;
        bool consumed;
        std::string left;
        std::string handed;  // empty: nothing
        bool waits;
    } const table[] = {
        {"eleven bytes", from_hex("0300000900070001000021"), false, from_hex("0300000900070001000021"), "",
         false},
        {"framed STUN", from_hex("030000160014") + stun, true, "", from_hex("030000160014") + stun, false},
        {"and six bytes too many are dropped behind it", from_hex("030000160014") + stun + tail, true,
         tail.substr(6), from_hex("030000160014") + stun, false},
        {"a frame of 12 with a tail", from_hex("0300000800060001000021FF") + tail, true, tail.substr(6),
         from_hex("0300000800060001000021FF"), false},
        {"framed media", from_hex("03000010000E") + rtp, false, rtp, "", false},
        {"what follows the first frame is dropped",
         from_hex("03000010000E") + rtp + from_hex("03000010000E") + rtp, false, rtp, "", false},
        {"framed media of one byte less", from_hex("03000010000E") + rtp.substr(1), true,
         from_hex("03000010000E") + rtp.substr(1), "", true},
        {"carry of the length lost: 0x102, not 0x202", from_hex("030001FE0000") + std::string(0x1FC, '\x80'),
         false, std::string(0x102 - 6, '\x80'), "", false},
        {"high byte even: the carry is kept", from_hex("030002FE0000") + std::string(0x302 - 6, '\x80'),
         false, std::string(0x302 - 6, '\x80'), "", false},
        {"a frame shorter than its header", from_hex("030000000000 40") + tail, false, "", "", false},
        {"a frame of its header alone", from_hex("030000020000 00") + tail, false, "", "", false},
        {"media marked by its top bits: 0x40", from_hex("0300000800064001000021FF"), false,
         from_hex("4001000021FF"), "", false},
        {"other second byte", from_hex("0301000800060001000021FF"), false,
         from_hex("0301000800060001000021FF"), "", false},
        {"TURN data unit", from_hex("0200000A") + tail.substr(0, 10), true, "",
         from_hex("0200000A") + tail.substr(0, 10), false},
        {"and four bytes too many behind it", from_hex("02000008") + tail, true, tail.substr(12),
         from_hex("02000008") + tail.substr(0, 8), false},
        {"unfinished TURN data unit", from_hex("0200000E") + tail, true, from_hex("0200000E") + tail, "",
         true},
        {"other second byte, unfinished", from_hex("0205000E") + tail, true, from_hex("0205000E") + tail, "",
         true},
        {"other second byte, complete", from_hex("02050008") + tail, false, from_hex("02050008") + tail, "",
         false},
        {"bare RTP", rtp, false, rtp, "", false},
    };
    for (auto const& [what, data, consumed, left, handed, waits] : table) {
        std::string rest = data;
        EXPECT_EQ(header(rest), consumed) << what;
        EXPECT_EQ(to_hex(rest), to_hex(left)) << what;
        lines expected;
        if (waits)
            expected = {wait};
        if (!handed.empty())
            expected = {"8 TCP rec len turn_pdu " + std::to_string(handed.size()) + " " + to_hex(handed),
                        handed_up(handed)};
        EXPECT_EQ(peer.transcript(), expected) << what;
    }
    std::string other_tag = table[1].data;
    header(other_tag, 14);
    EXPECT_EQ(peer.transcript().back(), handed_up(table[1].data, 14));
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
    auto const up = [](std::string const& data) {
        return to_hex(element_of(15, from_hex("0004 0002 0003 0005 0006 0FA0 C0A80107") +
                                         element_of(13, data) + short_element(34, 1)));
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
                            up(front), "8 tcp control"});
                continue;
            }
            if (frame)
                piece = length > 6 ? piece.substr(6, length - 6) : "";
        }
        bool known = true;
        if (byte(1) >= 200 && byte(1) <= 204) {
            out.push_back("8 rtcp " + to_hex(piece));
            std::string const copy = from_hex("0004 0002 0003") + element_of(22, "c") + element_of(9, piece);
            if (byte(0) < 2)
                out.push_back(to_hex(element_of(
                    15, from_hex("0004 0002 0003 0005 0006 0FA0 C0A80107") + element_of(14, piece))));
            else
                out.push_back(to_hex(element_of(14, copy)));
        } else if (byte(0) == 0x16) {
            out.insert(out.end(), {"8 pseudo tls", up(piece)});
        } else if (byte(0) >> 6 == 2) {
            out.push_back("8 rtp " + to_hex(piece));
        } else {
            out.push_back("8 no rtp " + to_hex(piece));
            known = false;
        }
        if (known)
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
    std::string const n = be16(static_cast<unsigned>(bytes.size()) + 12);
    std::string const n_2 = be16(static_cast<unsigned>(bytes.size()) + 14);
    std::string const rtp = from_hex("8012 0001 00000002 00000003") + bytes;
    std::string const rtcp = from_hex("81C8 0001 00000002 00000003") + bytes;
    std::string const stun = from_hex("0101 0000 2112A442 01020304") + bytes;
    switch (random.below(10)) {
        case 0: return from_hex("0300") + n_2 + n + rtp;
        case 1: return from_hex("0300") + n_2 + n + rtcp;
        case 2: return from_hex("0300") + n_2 + n + stun;
        case 3: return from_hex("0200") + n + rtp;
        case 4: return from_hex("02") + bytes;
        case 5: return from_hex("16030100") + n + stun;
        case 6: return rtp;
        case 7: return rtcp;
        case 8: return from_hex("03") + bytes;
        default: return bytes;
    }
}

class demultiplexing : public framing {
protected:
    demultiplexing() { channels[3].set_call_id(str("c")); }
    void expect_as_model(std::string const& piece) {
        channels[3].process_rtp(to_str(piece), sender, true, rtimestamp());
        ASSERT_EQ(peer.transcript(), expected_of(piece)) << to_hex(piece);
    }
};

TEST_F(demultiplexing, known_pieces) {
    std::string const rtp = from_hex("8012 0001 00000002 00000003 AABB");
    lines ten_times;
    for (int pass = 1; pass <= 10; pass++)
        ten_times.insert(ten_times.end(), {"8 no rtp 5501", "8 loop count " + std::to_string(pass)});
    struct {
        std::string piece;
        lines expected;
    } const table[] = {
        {"", {}},
        {from_hex("5501"), ten_times},
        {from_hex("160301"), {"8 pseudo tls", handed_up(from_hex("160301")), "8 loop count 1"}},
        {from_hex("03000010000E") + rtp + rtp, {"8 rtp " + to_hex(rtp), "8 loop count 1"}},
        {from_hex("0200000A 00112233445566778899 00000000") + rtp,
         {"8 TCP rec len turn_pdu 14 0200000A00112233445566778899",
          handed_up(from_hex("0200000A00112233445566778899")), "8 tcp control", "8 rtp " + to_hex(rtp),
          "8 loop count 2"}},
    };
    for (auto const& [piece, expected] : table) {
        channels[3].process_rtp(to_str(piece), sender, true, rtimestamp());
        EXPECT_EQ(peer.transcript(), expected) << to_hex(piece);
        EXPECT_EQ(expected_of(piece), expected) << "the model";
    }
}

TEST_F(demultiplexing, streams_cut_at_every_position) {
    dice random(5);
    std::string stream;
    while (stream.size() < 260)
        stream += random_unit(random);
    for (std::size_t cut = 0; cut <= stream.size() && !HasFailure(); cut++) {
        expect_as_model(stream.substr(0, cut));
        expect_as_model(stream.substr(cut));
    }
}

TEST_F(demultiplexing, streams_joined_and_cut_at_random) {
    seed_range{1, 120}.for_each([&](unsigned seed) {
        SCOPED_TRACE(seed_trace(seed));
        dice random(seed);
        std::string stream;
        for (int units = random.between(1, 12); units > 0; units--)
            stream += random_unit(random);
        while (!stream.empty() && !HasFailure()) {
            auto const n = static_cast<std::size_t>(random.between(1, random.chance(50) ? 40 : 800));
            expect_as_model(stream.substr(0, n));
            stream.erase(0, n);
        }
    });
}

}  // namespace
