// Work by the block of 10 ms, for counting instructions (scripts/sizes): the same for every run and machine, no clock,
// no peers, nothing but the process's own code. 200 blocks of speech-like sound over and over.
//
//     blocks encode|decode CODEC BLOCKS      a coder of that number, blocks of 10 ms through codec.h
//     blocks call|srtp CODEC BLOCKS          a channel that sends 20 ms a packet to itself: capture, coding, sending,
//                                            protection, receiving, jitter buffer, decoding, playing out
//     blocks --extensions LIST WORK ...      the same with extensions (lib/extensions.h)
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "lib/extensions.h"
#include "lib/sockets.h"
#include "media/channel.h"
#include "tests/support/signals.h"

namespace {

constexpr std::size_t cycle = 200;  // blocks
constexpr int block_samples = 80;

std::vector<str> speech() {
    signals::samples const pcm = signals::speech_like(cycle * block_samples, 12000, 1);
    std::vector<str> blocks;
    for (std::size_t i = 0; i < cycle; i++)
        blocks.push_back(str(reinterpret_cast<unsigned char const*>(&pcm[i * block_samples]), 2 * block_samples));
    return blocks;
}

void encode(int number, int blocks) {
    std::vector<str> const input = speech();
    codec coder;
    for (int i = 0; i < blocks; i++)
        coder.encode(number, input[static_cast<std::size_t>(i) % cycle]);
}

void decode(int number, int blocks) {
    std::vector<str> packets;
    codec coder;
    for (str const& block : speech())
        if (str const packet = coder.encode(number, block); !packet.empty())
            packets.push_back(packet);
    int const together = static_cast<int>(cycle / packets.size());  // GSM: 2
    for (int i = 0; i < blocks; i += together)
        coder.decode(number, packets[static_cast<std::size_t>(i / together) % packets.size()]);
}

std::uint32_t clock_10ms = 0;

void call(int number, int blocks, bool secure) {
    rtimestamp::raw_clock = [] { return clock_10ms; };
    init_timestamps();
    std::vector<str> const input = speech();
    channels.resize(channel_count);
    channel& own = channels[0];
    own.init();
    own.open(20000, 60000, 0);
    str map(static_cast<unsigned char>(0xFF), 128);
    map.set_character(number, static_cast<unsigned char>(number));
    own.set_codec(number, number, 101, map, 20);
    str const key('k', 30);
    if (secure)
        own.set_srtp(key, key, 10, str());
    own.set_ssrc(str(1, 2, 3, 4));
    str const here(127, 0, 0, 1);
    own.set_destination(ip_port(here, own.get_rtp_port()), ip_port(here, own.get_rtcp_port()), false);
    for (int i = 0; i < blocks; i++) {
        clock_10ms++;
        own.process_audio(input[static_cast<std::size_t>(i) % cycle]);
        if (i % 2 == 1) {
            ip_port from;
            str const datagram = utils::recv_udp_packet4(own.get_fd_rtp4(), from);
            if (datagram.empty())
                std::abort();
            own.process_rtp(datagram, from, false, rtimestamp(clock_10ms * 10'000'000LL));
        }
        bool talk_spurt = false;
        own.get_samples(talk_spurt);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 6 && std::string_view(argv[1]) == "--extensions" && extensions.add(argv[2])) {
        argc -= 2;
        argv += 2;
    }
    if (argc != 4)
        return std::fprintf(stderr, "usage: blocks [--extensions LIST] encode|decode|call|srtp CODEC BLOCKS\n"),
               EXIT_FAILURE;
    std::string_view const work = argv[1];
    int const number = std::atoi(argv[2]), blocks = std::atoi(argv[3]);
    if (work == "encode")
        encode(number, blocks);
    else if (work == "decode")
        decode(number, blocks);
    else
        call(number, blocks, work == "srtp");
}
