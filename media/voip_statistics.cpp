#include "media/voip_statistics.h"

#include <algorithm>
#include <cstdint>

#include "lib/pcm.h"
#include "lib/rtcp_numbers.h"
#include "media/arithmetic.h"
#include "media/e_model.h"

namespace {

/// A mean in ms, at most what 16 bits hold.
int mean_ms(int total_ms, int number) {
    return std::min(rounded(total_ms, number), 65535);
}

/// A part of a whole in 1/256, at most 255; 0 without a whole.
unsigned char share(long long part, long long whole) {
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
            add_lost(static_cast<std::uint32_t>(sequence) - static_cast<std::uint32_t>(last_fed) - 1);
        if (bursts.get_position() == 0)
            first_time = event.time;
        last_time = event.time;
        exact_bursts.add_received();
        bursts.add_received(event.time);
        last_fed = sequence;
    });
}

void voip_statistics::add_lost(std::uint32_t n) {
    bursts.add_lost(n);
    exact_bursts.add_lost(n);
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

xr::voip_metrics_block voip_statistics::get_exact_block(str const& remote_ssrc, int round_trip_ms, int codec) const {
    loss_bursts::totals const found = exact_bursts.get();
    long long const packets = found.burst.packets + found.gap.packets;
    long long const missing = found.burst.lost + found.gap.lost;  // lost, or late and discarded
    long long const span_ms = (last_time - first_time) / pcm::samples_per_ms;
    auto const duration_ms = [&](long long part, int number) {
        if (packets < 2 || number == 0)
            return 0;
        long long const share_q16 = (part << 16) / (packets - 1);
        return mean_ms(static_cast<int>((share_q16 * span_ms + 0x8000) >> 16), number);
    };
    int const delay_ms = round_trip_ms / 2 + rounded(jitter_buffer_sum_ms, jitter_buffer_samples);
    int const rating = e_model::rating(codec, share(missing, packets), delay_ms);
    auto const known = [](int score) { return score == e_model::unknown ? rtcp::unavailable : score; };
    return {
        .ssrc = remote_ssrc,
        .loss_rate = share(std::max(missing - discarded, 0LL), packets),
        .discard_rate = share(discarded, packets),
        .burst_density = share(found.burst.lost, found.burst.packets),
        .gap_density = share(found.gap.lost, found.gap.packets),
        .burst_duration_ms = duration_ms(found.burst.packets, found.bursts),
        .gap_duration_ms = duration_ms(found.gap.packets, found.bursts + 1),
        .round_trip_ms = round_trip_ms,
        .jitter_buffer_nominal_ms = rounded(jitter_buffer_sum_ms, jitter_buffer_samples),
        .jitter_buffer_max_ms = jitter_buffer_max_ms,
        .exact = true,
        .r_factor = rating == e_model::unknown ? rtcp::unavailable : (rating + 5) / 10,
        .listening_mos_x10 = known(e_model::opinion(e_model::rating(codec, share(missing, packets), 0))),
        .conversational_mos_x10 = known(e_model::opinion(rating)),
    };
}
