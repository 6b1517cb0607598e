#include "media/xr_blocks.h"

#include <climits>

#include "lib/bytes.h"
#include "lib/rtcp_numbers.h"
#include "media/arithmetic.h"
#include "media/ntp.h"
#include "media/rle_report_block.h"

namespace {

str short_field(int value) {
    return utils::int2str(static_cast<unsigned>(value), 2);
}
str long_field(std::uint32_t value) {
    return utils::int2str(value, 4);
}
str long_field(int value) {
    return long_field(static_cast<std::uint32_t>(value));
}

/// A block from what follows its first 4 bytes, a multiple of 4.
str block(int type, int specific, str const& body) {
    return str(static_cast<unsigned char>(type), static_cast<unsigned char>(specific)) +
           short_field(body.length() / 4) + body;
}

/// Exact floor of the square root, 0 for what is not positive.
std::uint32_t square_root(long long value) {
    std::uint64_t rest = value > 0 ? static_cast<std::uint64_t>(value) : 0;
    std::uint64_t root = 0;
    for (std::uint64_t bit = std::uint64_t{1} << 62; bit != 0; bit >>= 2) {
        bool const fits = rest >= root + bit;
        if (fits)
            rest -= root + bit;
        root = (root >> 1) + (fits ? bit : 0);
    }
    return static_cast<std::uint32_t>(root);
}

/// Root of the mean square less the mean's; the sum of squares wraps.
std::uint32_t deviation(xr_events::transit_differences const& transits, int mean) {
    if (transits.count == 0)
        return 0;
    long long const mean_square = wrapping_sum(transits.square_sum, transits.count / 2LL) / transits.count;
    return square_root(mean_square - static_cast<long long>(mean) * mean);
}

/// The bits of the packets that survive thinning, with a 0 for each number between them.
template <typename chooser>
str run_lengths(xr_events const& events, int before, int type, int thinning, str const& ssrc,
                chooser const& bit) {
    rle_report_block encoder;
    int last = before;
    events.for_each([&](int sequence, xr_events::packet_event const& event) {
        if (!xr::survives(sequence, thinning))
            return;
        if (sequence > last + 1LL)
            encoder.add_bits(last, false,
                             static_cast<std::uint32_t>(sequence) - static_cast<std::uint32_t>(last) - 1);
        last = sequence;
        encoder.add_bit(sequence, bit(event));
    });
    return encoder.get_rle(ssrc, type, thinning);
}

}  // namespace

str xr::build_loss_rle(xr_events const& events, int before, int thinning, str const& ssrc) {
    return run_lengths(events, before, rtcp::xr_block_type::loss_rle, thinning, ssrc,
                       [](auto const&) { return true; });
}

str xr::build_duplicate_rle(xr_events const& events, int before, int thinning, str const& ssrc) {
    return run_lengths(events, before, rtcp::xr_block_type::duplicate_rle, thinning, ssrc,
                       [](auto const& event) { return event.count >= 2; });
}

str xr::receipt_times_block::build() const {
    str groups;
    str times;
    int first = 0;
    long long behind_last = LLONG_MIN;
    auto const close_group = [&] {
        if (!times.empty())
            groups += short_field(first) + short_field(static_cast<int>(behind_last)) + times;
        times.clear();
    };
    events.for_each([&](int sequence, xr_events::packet_event const& event) {
        if (!survives(sequence, thinning))
            return;
        if (sequence != behind_last) {
            close_group();
            first = sequence;
        }
        times += long_field(event.time);
        behind_last = sequence + 1LL;
    });
    close_group();
    return block(rtcp::xr_block_type::receipt_times, thinning, ssrc + groups);
}

str xr::stat_summary_block::build() const {
    constexpr int flags = rtcp::summary_has_loss | rtcp::summary_has_duplicates | rtcp::summary_has_jitter;
    int const mean = rounded(transits.sum, transits.count);
    return block(rtcp::xr_block_type::statistics_summary, flags,
                 ssrc + short_field(sequences.lowest) + short_field(sequences.highest) +
                     long_field(sequences.lost) + long_field(sequences.duplicates) +
                     long_field(transits.min) + long_field(transits.max) + long_field(mean) +
                     long_field(deviation(transits, mean)) + long_field(0));
}

str xr::voip_metrics_block::build() const {
    str body = ssrc + str(loss_rate, discard_rate, burst_density, gap_density);
    body += short_field(burst_duration_ms) + short_field(gap_duration_ms);
    body += short_field(round_trip_ms) + short_field(0);
    constexpr unsigned char unavailable = rtcp::unavailable;
    constexpr unsigned char gmin = rtcp::gmin;
    body += str(unavailable, unavailable, unavailable, gmin);
    body += long_field(0);
    body += short_field(round_trip_ms) + short_field(jitter_buffer_nominal_ms);
    body += str(static_cast<unsigned char>(jitter_buffer_max_ms),
                static_cast<unsigned char>(jitter_buffer_max_ms >> 8), 0xFF, 0xFF);
    return block(rtcp::xr_block_type::voip_metrics, 0, body);
}

str xr::reference_time_block::build() const {
    constexpr std::uint32_t seconds_offset = 2085978497;
    std::uint32_t const seconds =
        static_cast<std::uint32_t>(now.get_seconds()) + ntp_timediff + seconds_offset;
    std::uint64_t const fraction = (static_cast<std::uint64_t>(now.get_milliseconds()) << 32) / 1000000;
    return block(rtcp::xr_block_type::receiver_reference_time, 0,
                 long_field(seconds) + long_field(static_cast<std::uint32_t>(fraction)));
}

str xr::dlrr_block::build() const {
    std::uint32_t const scaled =
        static_cast<std::uint32_t>(static_cast<std::uint64_t>(delay) << 16) / 1000000u;
    return block(rtcp::xr_block_type::dlrr, 0, ssrc + last_reference + long_field(scaled));
}
