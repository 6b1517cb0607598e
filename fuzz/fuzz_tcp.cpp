// A stream of framed media, STUN, TURN, TLS and anything else, as pieces that a TCP connection delivers.
//
// The input is a list of pieces.

#include "fuzz/fuzz_target.h"
#include "media/tcp_framing.h"

namespace {

/// Every call takes something off the data, leaves them alone or makes them shorter by a frame.
void check_header(str const& piece, ip_port const& from) {
    str rest = piece;
    bool const consumed = process_tcp_header(rest, 0, from, 13);
    FUZZ_CHECK(rest.length() <= piece.length());
    FUZZ_CHECK(piece.length() >= 12 || (!consumed && rest == piece));
    FUZZ_CHECK(piece[0] == 2 || piece[0] == 3 || rest == piece);
}

void check_framing(str const& piece, ip_port const& from) {
    str const packet = str(0x80, 0, 1, 2) + str("12345678") + piece;
    str framed = frame_for_tcp(packet);
    FUZZ_CHECK(framed.length() == packet.length() + 6);
    framed += piece.leftstr(20);  // what follows a frame is dropped
    bool const carry_is_lost = (packet.length() + 2) % 512 >= 508;
    FUZZ_CHECK(carry_is_lost || packet.length() > 65000 ||
               (!process_tcp_header(framed, 0, from, 13) && framed == packet));
}

}  // namespace

FUZZ_TARGET(tcp) {
    fuzz_call call;
    ip_port const peer(str('\1', 4), 5004);
    long long at_ms = 1000;
    while (input.more(200)) {
        str const piece = input.piece();
        check_header(piece, peer);
        check_framing(piece, peer);
        call.tested.process_rtp(piece, peer, true, rtimestamp(at_ms * 1000000));
        call.play(2);
        at_ms += 20;
    }
    call.report();
}
