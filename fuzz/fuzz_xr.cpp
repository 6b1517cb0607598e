// RTCP extended reports: the mode text from call control, then packets as they arrive, against a model of what each
// report must hold, and the blocks read by the tools' independent parser.
//
// First a piece of 1 byte of length: the mode text. Each step: 1 byte of what to do, then what it needs.

#include <cctype>

#include "fuzz/fuzz_target.h"
#include "media/ntp.h"
#include "media/rtcp_xr.h"
#include "tests/media/xr_model.h"
#include "tests/support/bytes.h"
#include "tests/support/manual_clock.h"

namespace {

std::string const remote = "REMO", local = "LOCA";

/// The words of a mode text in other words: by standard strings. The last of two equal ones counts.
void set_model_mode(xr_model& model, std::string const& text) {
    std::size_t next;
    for (std::size_t at = 0; at < text.size(); at = next + 1) {
        next = std::min(text.find(' ', at), text.size());
        std::string const word = text.substr(at, next - at);
        std::size_t const equals = std::min(word.find('='), word.size());
        std::string name = word.substr(0, equals);
        for (char& c : name)
            c = static_cast<char>(c >= 'A' && c <= 'Z' ? c | 0x20 : c);
        std::string const value = word.substr(std::min(equals + 1, word.size()));
        int const limit = value.empty() ? 65536 : to_str(value).value();
        if (name == "pkt-loss-rle")
            model.loss_max = limit;
        else if (name == "pkt-dup-rle")
            model.dup_max = limit;
        else if (name == "pkt-rcpt-times")
            model.times_max = limit;
        else if (name == "rcvr-rtt" || name == "stat-summary" || name == "voip-metrics")
            (name[0] == 'r' ? model.rtt : name[0] == 's' ? model.summary : model.voip) = true;
    }
}

}  // namespace

FUZZ_TARGET(xr) {
    enum step { packet, repeat, gap, discard, jitter_buffer, report, peer_time, wait, step_count };
    manual_clock clock;
    init_timestamps();
    ntp_timediff = 0;
    xr_model model;
    rtcp_xr xr;
    str const mode = input.bytes(input.byte());
    xr.set_mode(mode);
    set_model_mode(model, to_string(mode));
    FUZZ_CHECK(xr_mode::parse(mode).any() == (model.rtt || model.summary || model.voip || model.loss_max > 0 ||
                                              model.dup_max > 0 || model.times_max > 0));
    std::int32_t seq = static_cast<std::int32_t>(input.word());
    std::uint32_t stamp = 0;
    int leaps = 0;
    auto const monitor = [&] {
        std::uint32_t const arrival = stamp + (input.byte() << 3);
        xr.monitor(seq, static_cast<int>(stamp), static_cast<int>(arrival));
        model.monitor(seq, stamp, arrival);
    };
    auto const compare = [&] {
        FUZZ_CHECK(xr.calculate_jitter() == model.jitter());
        unsigned const delay = input.word();
        str const sent = xr.get_packet(to_str(remote), to_str(local), static_cast<int>(delay));
        std::string const expected =
            model.packet(remote, local, delay, rtimestamp::now().diff_ticks(rtimestamp()), ntp_timediff);
        FUZZ_CHECK(extensions.rtcp || to_string(sent) == expected);  // the model is not that of exact reports
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
            case gap:  // leaps cost the model a step for each lost packet
                seq += static_cast<std::int32_t>(amount < 30 || ++leaps > 3 ? amount : input.word());
                break;
            case discard:
                xr.add_discard();
                model.discard();
                break;
            case jitter_buffer: {
                int const ms = static_cast<int>(input.word());
                xr.monitor_jitter_buffer_size(ms);
                model.jitter_buffer(ms);
                break;
            }
            case report: compare(); break;
            case peer_time: {
                std::string const ntp = be32(input.long_word()) + be32(input.long_word());
                xr.process_report(to_str(from_hex("80CF0004") + remote + from_hex("04000002") + ntp),
                                  rtimestamp::now());
                model.reference_time = ntp.substr(2, 4);
                model.reference_arrival_ns = rtimestamp::now().diff_ticks(rtimestamp());
                break;
            }
            default: clock.advance(amount << 4); break;
        }
    }
    compare();
}
