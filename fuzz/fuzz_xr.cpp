// RTCP extended reports: the mode text from call control, then packets as they arrive. Every report is whole; what they
// hold is noted, and replay.cpp compares it with what is known to be right.
//
// First a piece of 1 byte of length: the mode text. Each step: 1 byte of what to do, then what it needs.

#include "fuzz/fuzz_target.h"
#include "media/ntp.h"
#include "media/rtcp_packet.h"
#include "media/rtcp_xr.h"
#include "tests/support/bytes.h"
#include "tests/support/manual_clock.h"

FUZZ_TARGET(xr) {
    enum step { packet, repeat, gap, discard, jitter_buffer, report, peer_time, wait, step_count };
    manual_clock clock;
    init_timestamps();
    ntp_timediff = 0;
    rtcp_xr xr;
    str const mode = input.bytes(input.byte());
    xr.set_mode(mode);
    fuzz_outcome.add(std::string(1, xr_mode::parse(mode).any() ? '1' : '0'));
    std::int32_t seq = static_cast<std::int32_t>(input.word());
    std::uint32_t stamp = 0;
    auto const monitor = [&] {
        xr.monitor(seq, static_cast<int>(stamp), static_cast<int>(stamp + (input.byte() << 3)));
    };
    auto const take_report = [&] {
        unsigned const delay = input.word();
        std::uint32_t const jitter = static_cast<std::uint32_t>(xr.calculate_jitter());
        str const sent = xr.get_packet(str("REMO"), str("LOCA"), static_cast<int>(delay));
        int whole = 0;
        rtcp::for_each_packet(sent + str('\0', 4), [&](int, str const& each) { whole += each.length(); });
        FUZZ_CHECK(whole == sent.length());
        fuzz_outcome.add(be32(jitter) + to_string(sent));
    };
    while (input.more(120)) {
        unsigned const what = input.byte();
        unsigned const amount = what / step_count;  // 0..31
        switch (what % step_count) {
            case packet:
                for (unsigned i = 0; i <= amount; i++, stamp += 160, seq++)
                    monitor();
                break;
            case repeat:
                seq -= static_cast<std::int32_t>(amount);
                monitor();
                seq += static_cast<std::int32_t>(amount);
                break;
            case gap: seq += static_cast<std::int32_t>(amount < 30 ? amount : input.word()); break;
            case discard: xr.add_discard(); break;
            case jitter_buffer: xr.monitor_jitter_buffer_size(static_cast<int>(input.word())); break;
            case report: take_report(); break;
            case peer_time:
                xr.process_report(to_str(from_hex("80CF0004") + "REMO" + from_hex("04000002")) + input.bytes(8),
                                  rtimestamp::now());
                break;
            default: clock.advance(amount << 4); break;
        }
    }
    take_report();
}
