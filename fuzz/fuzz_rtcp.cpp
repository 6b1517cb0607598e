// RTCP from the peer, plain and keyed, extended reports included, with reports of ours between.
//
// First byte: bit 0 SRTCP. Each step: 1 byte of what to do, 1 byte of 10 ms blocks that pass, then a piece.

#include "fuzz/fuzz_target.h"
#include "media/rtcp_packet.h"

namespace {

/// The walk over a compound ends, and gives each packet within it.
void check_walk(str const& compound) {
    int packets = 0, bytes = 0;
    rtcp::for_each_packet(compound, [&](int type, str const& packet) {
        FUZZ_CHECK(type >= 0 && type < 256);
        FUZZ_CHECK(packet.length() >= 4);
        packets++;
        bytes += packet.length();
    });
    FUZZ_CHECK(packets <= compound.length() / 4);
    FUZZ_CHECK(bytes <= compound.length());
}

}  // namespace

FUZZ_TARGET(rtcp) {
    enum step { datagram, tcp, other_sender, rtp, bye, step_count };
    fuzz_call call;
    channel& tested = call.tested;
    if (input.byte() & 1)
        tested.set_srtp(str('r', 30), str('t', 30), 10, str("mki"));
    ip_port const peer(str('\1', 4), 5005), other(str('\2', 4), 5005);
    while (input.more(100)) {
        unsigned const what = input.byte();
        call.advance(input.byte());
        str const bytes = input.piece();
        check_walk(bytes);
        switch (what % step_count) {
            case datagram: tested.process_rtcp(bytes, peer, false, rtimestamp::now()); break;
            case tcp: tested.process_rtcp(bytes, other, true, rtimestamp::now()); break;
            case other_sender: tested.process_rtcp(bytes, other, false, rtimestamp(1)); break;
            case rtp: tested.process_rtp_data(bytes, peer, false, rtimestamp::now()); break;
            default: tested.send_rtcp_bye(bytes); break;
        }
        call.report();
    }
}
