#include "media/source_statistics.h"

#include <algorithm>

namespace {

// RFC 3550 appendix A.1.
constexpr int max_dropout = 3000;
constexpr int max_misorder = 100;
constexpr std::uint32_t sequence_mod = 1u << 16;

}  // namespace

void source_statistics::begin(std::uint16_t sequence) {
    first = highest = sequence;
    cycles = received = 0;
    restart_at = sequence_mod;
    any = true;
}

void source_statistics::add(std::uint16_t sequence, std::uint32_t rtp_timestamp, std::uint32_t arrival) {
    if (!any) {
        begin(sequence);
        last_transit = arrival - rtp_timestamp;
    }
    int const ahead = static_cast<std::uint16_t>(sequence - highest);
    if (ahead < max_dropout) {
        if (sequence < highest)
            cycles += sequence_mod;
        highest = sequence;
    } else if (ahead <= static_cast<int>(sequence_mod) - max_misorder) {
        if (sequence != restart_at) {
            restart_at = (sequence + 1u) % sequence_mod;
            return;
        }
        begin(sequence);  // two in a row
    }
    received++;
    time(rtp_timestamp, arrival);
}

void source_statistics::time(std::uint32_t rtp_timestamp, std::uint32_t arrival) {
    std::uint32_t const transit = arrival - rtp_timestamp;
    std::uint32_t const change = transit - last_transit;
    last_transit = transit;
    jitter_q4 += std::min(change, 0u - change) - ((jitter_q4 + 8) >> 4);
}

int source_statistics::get_lost() const {
    return std::clamp(static_cast<std::int32_t>(get_expected() - received), -0x800000, 0x7FFFFF);
}

unsigned char loss_interval::take(source_statistics const& source) {
    std::int32_t const of = static_cast<std::int32_t>(source.get_expected() - expected);
    std::int32_t const came = static_cast<std::int32_t>(source.get_received() - received);
    expected = source.get_expected();
    received = source.get_received();
    if (of <= 0 || came >= of)
        return 0;
    return static_cast<unsigned char>(std::min((of - came) * 256LL / of, 255LL));
}
