// Plain RTP: pieces that arrive at a channel at any time, with play-out and reports between them.
//
// Each step: 1 byte of what to do, 1 byte of 10 ms blocks that pass, 2 bytes of arrival time in ms, then for packets a
// piece.

#include "fuzz/fuzz_target.h"

FUZZ_TARGET(rtp) {
    enum step { packet, packet_without_length, play, report, new_destination, step_count };
    fuzz_call call;
    while (input.more()) {
        unsigned const what = input.byte();
        call.advance(input.byte());
        unsigned const arrival_ms = input.word();
        ip_port const from(str('\1', what & 0x80 ? 16 : 4), 4000);
        rtimestamp const arrival(arrival_ms * 1000000LL);
        switch (what % step_count) {
            case packet: call.tested.process_rtp_data(input.piece(), from, false, arrival); break;
            case packet_without_length: call.tested.process_rtp_data(input.bytes(172), from, false, arrival); break;
            case play: call.play(static_cast<int>(arrival_ms % 16)); break;
            case report: call.report(); break;
            default: call.tested.set_destination(ip_port(), ip_port(), false); break;
        }
        call.play(1);
    }
    call.report();
}
