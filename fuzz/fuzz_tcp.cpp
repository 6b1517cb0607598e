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

void check_round_trip(str const& piece, ip_port const& from) {
    str const packet = str(0x80, 0, 1, 2) + str("12345678") + piece;
    str framed = frame_for_tcp(packet);
    FUZZ_CHECK(framed.length() == packet.length() + 6);
    bool const carry_is_lost = (packet.length() + 2) % 512 >= 508;
    FUZZ_CHECK(carry_is_lost || packet.length() > 65000 ||
               (!process_tcp_header(framed, 0, from, 13) && framed == packet));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    channel& tested = fuzz_channel();
    ip_port const peer(str('\1', 4), 5004);
    long long at_ms = 1000;
    while (!input.empty()) {
        str const piece = input.piece();
        check_header(piece, peer);
        check_round_trip(piece, peer);
        tested.process_rtp(piece, peer, true, rtimestamp(at_ms * 1000000));
        fuzz_play(tested, 2);
        at_ms += 20;
    }
    fuzz_report(tested);
    return 0;
}
