// Plain RTP: pieces that arrive at a channel at any time, with play-out and reports between them.
//
// Each step: 1 byte of what to do, 1 byte of 10 ms blocks that pass, then for packets 2 bytes of arrival time and a
// piece.

#include "fuzz/fuzz_target.h"

namespace {

enum step { packet, packet_without_length, play, report, new_destination, step_count };

void receive(channel& tested, str const& data, unsigned at_ms, bool over_ipv6) {
    ip_port const from(over_ipv6 ? str('\1', 16) : str('\1', 4), 4000);
    FUZZ_CHECK(tested.process_rtp_data(data, from, false, rtimestamp(at_ms * 1000000LL)) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    channel& tested = fuzz_channel();
    while (!input.empty()) {
        unsigned const what = input.byte();
        fuzz_advance(input.byte());
        unsigned const arrival_ms = input.word();
        switch (what % step_count) {
            case packet: receive(tested, input.piece(), arrival_ms, what & 0x80); break;
            case packet_without_length: receive(tested, input.bytes(172), arrival_ms, what & 0x80); break;
            case play: fuzz_play(tested, arrival_ms % 16); break;
            case report: fuzz_report(tested); break;
            default: tested.set_destination(ip_port(), ip_port(), false); break;
        }
        bool const available = tested.output_available();
        str const block = tested.get_samples();
        FUZZ_CHECK(block.length() == 160);
        FUZZ_CHECK(available || block == str('\0', 160));
    }
    fuzz_report(tested);
    return 0;
}
