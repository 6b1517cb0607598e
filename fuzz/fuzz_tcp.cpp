// A stream of framed media, STUN, TURN, TLS and anything else, as pieces that a TCP connection delivers.
//
// The input is a list of pieces.

#include "fuzz/fuzz_target.h"
#include "media/tcp_framing.h"

namespace {

/// What is taken off a piece is within it.
void check_unit(str const& piece) {
    tcp_unit const unit = parse_tcp_unit(piece);
    bool const bare = unit.what == tcp_unit::kind::bare;
    FUZZ_CHECK(unit.data.length() + unit.rest.length() <= piece.length());
    FUZZ_CHECK(bare ? unit.data == piece : piece.length() >= 12 && (piece[0] == 2 || piece[0] == 3));
}

}  // namespace

FUZZ_TARGET(tcp) {
    fuzz_call call;
    ip_port const peer(str('\1', 4), 5004);
    long long at_ms = 1000;
    while (input.more(200)) {
        str const piece = input.piece();
        check_unit(piece);
        call.tested.process_rtp(piece, peer, true, rtimestamp(at_ms * 1000000));
        call.play(2);
        at_ms += 20;
    }
    call.report();
}
