#include "media/voip_statistics.h"

#include <algorithm>
#include <cstdint>

#include "media/arithmetic.h"

namespace {

/// A mean in ms, at most what 16 bits hold.
int mean_ms(int total_ms, int number) {
    return std::min(rounded(total_ms, number), 65535);
}

/// A part of a whole in 1/256, at most 255; 0 without a whole.
unsigned char share(long long part, int whole) {
    return static_cast<unsigned char>(whole < 1 ? 0 : std::min((part * 256 + whole / 2) / whole, 255LL));
}

}  // namespace

void voip_statistics::add_discard() {
    discarded = wrapping_sum(discarded, 1);
}

void voip_statistics::add_jitter_buffer_size(int ms) {
    jitter_buffer_sum_ms = wrapping_sum(jitter_buffer_sum_ms, ms);
    jitter_buffer_samples++;
    jitter_buffer_max_ms = std::max(jitter_buffer_max_ms, ms);
}

void voip_statistics::add_period(xr_events const& events) {
    events.for_each([&](int sequence, xr_events::packet_event const& event) {
        if (bursts.get_position() > 0 && sequence > last_fed + 1LL)
            bursts.add_lost(static_cast<std::uint32_t>(sequence) - static_cast<std::uint32_t>(last_fed) - 1);
        bursts.add_received(event.time);
        last_fed = sequence;
    });
}

void voip_statistics::end_period() {
    jitter_buffer_max_ms = jitter_buffer_sum_ms = jitter_buffer_samples = 0;
}

/// The densities are divided by durations in ms, not by packets; peers depend on it.
xr::voip_metrics_block voip_statistics::get_block(str const& remote_ssrc, int round_trip_ms) const {
    int const packets = bursts.get_position();
    int const burst_total = bursts.burst_total_ms();
    int const gap_total = bursts.gap_total_ms();
    return {
        .ssrc = remote_ssrc,
        .loss_rate = share(bursts.get_lost(), packets),
        .discard_rate = share(discarded, packets),
        .burst_density = share(bursts.get_burst_lost(), burst_total),
        .gap_density = share(bursts.get_gap_lost(), gap_total),
        .burst_duration_ms = mean_ms(burst_total, bursts.burst_number()),
        .gap_duration_ms = mean_ms(gap_total, bursts.get_bursts() + 1),
        .round_trip_ms = round_trip_ms,
        .jitter_buffer_nominal_ms = rounded(jitter_buffer_sum_ms, jitter_buffer_samples),
        .jitter_buffer_max_ms = jitter_buffer_max_ms,
    };
}
