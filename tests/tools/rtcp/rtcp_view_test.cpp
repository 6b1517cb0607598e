// RTCP packets as text and JSON, byte for byte, and what malformed ones come out as. Random ones: fuzz/fuzz_tools.cpp.

#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/rtcp/compounds.h"
#include "tools/rtcp/packet.h"
#include "tools/rtcp/show.h"

using namespace rtcp_view;
using protocol::bytes;

namespace {

/// After each ">" the bytes, below them what they are shown as.
std::string const shown_as = R"(
>WHOLE
SR ssrc=11111111 ntp=1970-01-01T00:00:00.500Z ntp_hex=83aa7e8080000000 rtp_timestamp=1000 packets=100 octets=16000 announced_blocks=1
  block ssrc=22222222 loss_percent=25.0 lost=-1 highest_sequence=65541 jitter=80 lsr=7e808000 dlsr_ms=1000.0
SDES
  chunk ssrc=11111111 cname=VELK
XR ssrc=11111111
  loss-rle ssrc=22222222 thinning=0 begin=1 end=100 chunks=99x1,001000010101010,1x1
  dup-rle ssrc=22222222 thinning=3 begin=0 end=16 chunks=000000000000011
  rcpt-times ssrc=22222222 thinning=0
    group begin=1 end=3 times=160,320
    group begin=8 end=9 times=1920
  stat-summary ssrc=22222222 begin=1 end=100 lost=3 duplicates=1 jitter_min=2 jitter_max=9 jitter_mean=4 jitter_deviation=1
  voip-metrics ssrc=22222222 loss_percent=50.0 discard_percent=25.0 burst_density_percent=0.8 gap_density_percent=0.4 burst_ms=100 gap_ms=5000 round_trip_ms=20 end_system_delay_ms=0 signal_dbm=- noise_dbm=- rerl_db=- gmin=16 r_factor=0 external_r_factor=0 mos_lq_tenths=0 mos_cq_tenths=0 round_trip_again_ms=20 jb_nominal_ms=40 jb_maximum_ms=60 jb_maximum_order="low byte first" jb_absolute_ms=65535
  rrtr ntp=1970-01-01T00:00:00.250Z ntp_hex=83aa7e8040000000
  dlrr
    answer ssrc=22222222 lrr=7e808000 dlrr_ms=500.0
>80
malformed problem="no RTCP header" unread=80
>40c80000
malformed problem="no RTCP header" unread=40c80000
>81c80008 11111111 83aa7e80 00000000 00000000 00000000 00000000 7e808000 00008000
SR ssrc=11111111 ntp=1970-01-01T00:00:00.000Z ntp_hex=83aa7e8000000000 rtp_timestamp=0 packets=0 octets=0 announced_blocks=1 note="no report block, only its end" lsr=7e808000 dlsr_ms=500.0
>80c90001 11111111 40
RR ssrc=11111111 announced_blocks=0
malformed problem="no RTCP header" unread=40
>82c90002 11111111 00000001
RR ssrc=11111111 announced_blocks=2 problem="0 of 2 report blocks" unread=00000001
>80c90002 11111111 abcdef01
RR ssrc=11111111 announced_blocks=0 extension=abcdef01
>80c80001 11111111
SR problem="too short" unread=11111111
>80c90003 11111111
RR ssrc=11111111 announced_blocks=0 problem="8 of 16 bytes"
>81ca0004 11111111 0102 6120 0602 22ff 0801 7a00
SDES
  chunk ssrc=11111111 cname="a " tool="\"\xff" priv=z
>81ca0002 11111111 01ff6100
SDES problem="too short"
  chunk ssrc=11111111 cname="a\x00"
>82cb0004 11111111 22222222 05 6c6f7320 79 0000
BYE sources=11111111,22222222 reason="los y"
>81cb0000
BYE problem="too short"
>83cc0003 11111111 74657374 0102ff00
APP ssrc=11111111 name=test subtype=3 data=0102ff00
>a1cb0002 11111111 00000004
BYE sources=11111111
>a1cb0001 11111111
BYE sources=11111111 problem="padding of 17 bytes does not fit"
>80d20001 deadbeef
210 data=deadbeef
>80cf0003 11111111 63050001 deadbeef
XR ssrc=11111111
  unknown number=99 specific=5 data=deadbeef
>80cf0003 11111111 07000001 deadbeef
XR ssrc=11111111
  voip-metrics problem="too short" unread=deadbeef
>80cf0003 11111111 04000009 83aa7e80
XR ssrc=11111111
  rrtr problem="8 of 40 bytes" unread=83aa7e80
>80cf0006 11111111 03010004 22222222 fffe0003 00000001 00000002
XR ssrc=11111111
  rcpt-times ssrc=22222222 thinning=1 problem="too short"
    group begin=65534 end=3 times=1,2
>80cf000a 11111111 07000008 22222222 00000000 00000000 00140000 ec880010 5d7f2b7f 1000 0028 003c ffff
XR ssrc=11111111
  voip-metrics ssrc=22222222 loss_percent=0.0 discard_percent=0.0 burst_density_percent=0.0 gap_density_percent=0.0 burst_ms=0 gap_ms=0 round_trip_ms=20 end_system_delay_ms=0 signal_dbm=-20 noise_dbm=-120 rerl_db=0 gmin=16 r_factor=93 external_r_factor=- mos_lq_tenths=43 mos_cq_tenths=- configuration=1000 jb_nominal_ms=40 jb_maximum_ms=60 jb_maximum_order="high byte first" jb_absolute_ms=65535
)";

TEST(rtcp_view, packets_with_every_block_and_malformed_ones) {
    std::istringstream cases(shown_as.substr(2));
    int count = 0;
    for (std::string one; std::getline(cases, one, '>'); ++count) {
        std::size_t const end = one.find('\n');
        std::string const hex = one.substr(0, end);
        bytes const data = hex == "WHOLE" ? whole_compound() : protocol::from_hex(hex).value();
        EXPECT_EQ(to_text(parse_compound(data), 0), one.substr(end + 1)) << one;
    }
    EXPECT_EQ(count, 22);
}

TEST(rtcp_view, every_truncation_says_so) {
    bytes cut = whole_compound();
    while (!cut.empty()) {
        cut.pop_back();
        bool const between_packets = cut.empty() || cut.size() == 52 || cut.size() == 68;
        std::vector<packet> const packets = parse_compound(cut);
        EXPECT_EQ(packets.empty() || packets.back().problem.empty(), between_packets) << cut.size();
        EXPECT_EQ(to_json(packets).size(), packets.size());
        EXPECT_FALSE(looks_encrypted(cut)) << cut.size();
    }
}

}  // namespace
