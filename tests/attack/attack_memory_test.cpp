#include "tests/attack/attacker.h"

namespace {

/// Packets of so many bytes, of which only the last `payload` are not header.
struct shape {
    char const* what;
    int bytes;
    int payload;
    protocol::codec_choice codec = linear;
    bool marker = false;
};
constexpr int longest = 65507;  // of a UDP datagram

// A channel holds what makes more than 128 KiB of payload or 400 packets, and one packet more; a payload may lie in a
// block of twice its length and 1 KiB. The pool keeps what it once gave out, for each size by itself. So the worst is
// to fill the buffers with one size of block after the other:
//
//     block in KiB       64   32   16    8    4    2    1  1/2  1/4, and 401 nodes of 1/4
//     payload            all  15864  7672  3576  1528  504 and less
//     packets held        3    9   18   37   86  261  401  401  401
//     KiB of a channel  192  288  288  296  344  522  401  201  201
//
// which is 2733 KiB, 21.4 MiB for eight channels. A mebibyte more for call
// control's datagrams, log lines and what a sanitizer keeps.
constexpr long most_kb = 23 * 1024;
constexpr shape shapes[] = {
    {"64 KB linear", longest, longest - 16},
    {"64 KB G.729", longest, longest - 16, g729},
    {"64 KB with the marker", longest, longest - 16, linear, true},
    {"60 KB of header, 1 byte of audio", 60000, 1},
    {"32 KB blocks", 32752, 15868},
    {"16 KB blocks", 16368, 7676},
    {"8 KB blocks", 8176, 3580},
    {"4 KB blocks", 4080, 1532},
    {"2 KB blocks", 2032, 508},
    {"1 KB blocks", 1008, 4},
    {"512 byte blocks", 496, 4},
    {"256 byte blocks", 240, 4},
};

std::string packet(shape const& s, int sequence) {
    rtp_packet packet{.payload_type = s.codec.payload_type, .sequence = static_cast<std::uint16_t>(sequence)};
    packet.marker = s.marker;
    packet.extension_words = (s.bytes - 16 - s.payload) / 4;
    std::string bytes = packet.build();
    bytes.resize(static_cast<std::size_t>(s.bytes), 'x');
    return bytes;
}

TEST(Memory, EightChannelsUnderLargePacketsStayWithinBounds) {
    controlled_process process({});
    std::vector<stranger> attackers;
    for (std::uint16_t call = 0; call < 8; call++) {
        attackers.emplace_back(process.open(call).rtp_port);
        tell(process, protocol::media_command{.call = call, .send = linear, .map = {linear, g729}});
    }
    EXPECT_GE(answer_ms(process), 0);
    long const before_kb = memory_kb(process);
    long grown_kb = 0;
    int sequence = 40000;
    for (shape const& s : shapes) {
        int const burst = std::clamp(60000 / s.bytes, 1, 40);  // what a socket holds at once
        for (int n = std::min(131072 / s.payload + 3, 410); n > 0; n--, sequence++) {
            for (stranger& attacker : attackers)
                attacker.send(packet(s, sequence));
            EXPECT_TRUE(n % burst != 0 || answer_ms(process) >= 0) << s.what;
        }
        grown_kb = memory_kb(process) - before_kb;
        std::printf("%s to eight channels: %ld kB more memory\n", s.what, grown_kb);
    }
    EXPECT_LT(grown_kb, most_kb);
}

TEST(Memory, AHugePacketHoldsTheLineUpForThreeSecondsOfAudioOnly) {
    auto const lines = speakers();
    controlled_process process({"--tdm", lines->tdm_path()});
    stranger far(process.open(0).rtp_port);
    tell(process, protocol::media_command{.call = 0, .send = linear, .map = {linear, g729}});
    process.put_on_line(0, 0);
    ASSERT_TRUE(lines->wait_for_open(1));
    far.send(packet({"64 KB G.729", longest, longest - 16, g729}, 100));
    far.send(rtp_packet{.payload_type = 100, .sequence = 101, .payload = std::string(160, '\x11')}.build());
    int ticks = 0, worst_ms = 0;
    auto const& ear = lines->heard(0);
    for (; std::count(ear.begin(), ear.end(), 0x1111) < 80 && ticks < 350; ticks++) {
        auto const begin = std::chrono::steady_clock::now();
        lines->run(1);
        worst_ms = std::max(worst_ms, ms_since(begin));
    }
    std::printf("behind 64 KB of G.729: heard after %d ms of audio, the slowest block took %d ms\n",
                10 * ticks, worst_ms);
    EXPECT_TRUE(ticks > 250 && ticks < 350 && worst_ms < 1000);
}

}  // namespace
