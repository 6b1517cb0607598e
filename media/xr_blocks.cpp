#include "media/xr_blocks.h"

#include <climits>

#include "lib/byte_writer.h"
#include "lib/extensions.h"
#include "lib/rtcp_numbers.h"
#include "media/arithmetic.h"
#include "media/jitter_buffer.h"
#include "media/ntp.h"
#include "media/rle_report_block.h"

namespace {

/// A field from a number whose low bits count.
std::uint32_t bits(int value) {
    return static_cast<std::uint32_t>(value);
}

/// A block from what follows its first 4 bytes, a multiple of 4.
str block(int type, int specific, byte_writer const& body) {
    byte_writer whole;
    whole.put8(bits(type)).put8(bits(specific)).put16(bits(body.get().length() / 4)).put(body.get());
    return whole.get();
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
str run_lengths(xr_events const& events, int before, int type, int thinning, str const& ssrc, chooser const& bit) {
    rle_report_block encoder;
    int last = before;
    events.for_each([&](int sequence, xr_events::packet_event const& event) {
        if (!xr::survives(sequence, thinning))
            return;
        if (sequence > last + 1LL)
            encoder.add_bits(last, false, static_cast<std::uint32_t>(sequence) - static_cast<std::uint32_t>(last) - 1);
        last = sequence;
        encoder.add_bit(sequence, bit(event));
    });
    return encoder.get_rle(ssrc, type, thinning);
}

}  // namespace

str xr::build_loss_rle(xr_events const& events, int before, int thinning, str const& ssrc) {
    return run_lengths(events, before, rtcp::xr_block_type::loss_rle, thinning, ssrc, [](auto const&) { return true; });
}

str xr::build_duplicate_rle(xr_events const& events, int before, int thinning, str const& ssrc) {
    return run_lengths(events, before, rtcp::xr_block_type::duplicate_rle, thinning, ssrc,
                       [](auto const& event) { return event.count >= 2; });
}

str xr::receipt_times_block::build() const {
    byte_writer body;
    byte_writer times;
    int first = 0;
    long long behind_last = LLONG_MIN;
    body.put(ssrc);
    auto const close_group = [&] {
        if (!times.get().empty())
            body.put16(bits(first)).put16(static_cast<std::uint32_t>(behind_last)).put(times.get());
        times = byte_writer();
    };
    events.for_each([&](int sequence, xr_events::packet_event const& event) {
        if (!survives(sequence, thinning))
            return;
        if (sequence != behind_last) {
            close_group();
            first = sequence;
        }
        times.put32(event.time);
        behind_last = sequence + 1LL;
    });
    close_group();
    return block(rtcp::xr_block_type::receipt_times, thinning, body);
}

str xr::stat_summary_block::build() const {
    constexpr int flags = rtcp::summary_has_loss | rtcp::summary_has_duplicates | rtcp::summary_has_jitter;
    int const mean = rounded(transits.sum, transits.count);
    byte_writer body;
    body.put(ssrc).put16(bits(sequences.lowest)).put16(bits(sequences.highest));
    body.put32(sequences.lost).put32(sequences.duplicates);
    body.put32(bits(transits.min)).put32(bits(transits.max)).put32(bits(mean)).put32(deviation(transits, mean));
    body.put32(0);
    return block(rtcp::xr_block_type::statistics_summary, flags, body);
}

str xr::voip_metrics_block::build() const {
    byte_writer body;
    body.put(ssrc).put8(loss_rate).put8(discard_rate).put8(burst_density).put8(gap_density);
    body.put16(bits(burst_duration_ms)).put16(bits(gap_duration_ms));
    body.put16(bits(round_trip_ms)).put16(0);
    body.put8(rtcp::unavailable).put8(rtcp::unavailable).put8(rtcp::unavailable).put8(rtcp::gmin);
    if (exact) {
        unsigned const configuration = (extensions.playout ? 2u : 1u) << 6 | 3 << 4;
        body.put8(bits(r_factor)).put8(rtcp::unavailable);
        body.put8(bits(listening_mos_x10)).put8(bits(conversational_mos_x10)).put8(configuration).put8(0);
        body.put16(bits(jitter_buffer_nominal_ms)).put16(bits(jitter_buffer_max_ms)).put16(jitter_buffer::oldest_ms);
    } else {
        body.put32(0);
        body.put16(bits(round_trip_ms)).put16(bits(jitter_buffer_nominal_ms));
        body.put8(bits(jitter_buffer_max_ms)).put8(bits(jitter_buffer_max_ms >> 8)).put16(0xFFFF);
    }
    return block(rtcp::xr_block_type::voip_metrics, 0, body);
}

str xr::reference_time_block::build() const {
    constexpr std::uint32_t seconds_offset = 2085978497;
    std::uint32_t const seconds = static_cast<std::uint32_t>(now.get_seconds()) + ntp_timediff + seconds_offset;
    std::uint64_t const fraction = (static_cast<std::uint64_t>(now.get_milliseconds()) << 32) / 1000000;
    byte_writer body;
    body.put32(seconds).put32(static_cast<std::uint32_t>(fraction));
    return block(rtcp::xr_block_type::receiver_reference_time, 0, body);
}

str xr::exact_reference_time_block::build() const {
    byte_writer body;
    body.put32(sent.seconds).put32(sent.fraction);
    return block(rtcp::xr_block_type::receiver_reference_time, 0, body);
}

str xr::dlrr_block::build() const {
    return build_exact(ssrc, last_reference,
                       static_cast<std::uint32_t>(static_cast<std::uint64_t>(delay) << 16) / 1000000u);
}

str xr::dlrr_block::build_exact(str const& ssrc, str const& last_reference, std::uint32_t delay) {
    byte_writer body;
    body.put(ssrc).put(last_reference).put32(delay);
    return block(rtcp::xr_block_type::dlrr, 0, body);
}
