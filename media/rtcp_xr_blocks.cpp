#include <algorithm>
#include <climits>

#include "lib/bytes.h"
#include "media/ntp.h"
#include "media/rtcp_xr.h"

namespace {

// Block types, RFC 3611 section 4.
constexpr int loss_rle_block = 1;
constexpr int dup_rle_block = 2;
constexpr int receipt_times_block = 3;
constexpr int rrtr_block = 4;
constexpr int dlrr_block = 5;
constexpr int stat_summary_block = 6;
constexpr int voip_metrics_block = 7;

constexpr int most_thinning = 15;
constexpr unsigned char unavailable = 127;  // levels and echo return loss, RFC 3611 section 4.7.3
constexpr unsigned char gmin = 16;

str short_field(int value) {
    return utils::int2str(static_cast<unsigned>(value), 2);
}
str long_field(std::uint32_t value) {
    return utils::int2str(value, 4);
}
unsigned char byte_field(int value) {
    return static_cast<unsigned char>(value);
}

str block_start(int type, int specific, int length_words) {
    return str(byte_field(type), byte_field(specific)) + short_field(length_words);
}

/// a / b, rounded; 0 without a divisor.
int rounded(long long a, long long b) {
    return b == 0 ? 0 : static_cast<int>((a + b / 2) / b);
}

/// A part of a whole in 1/256, at most 255; 0 without a whole.
int share(long long part, int whole) {
    return whole < 1 ? 0 : static_cast<int>(std::min((part * 256 + whole / 2) / whole, 255LL));
}

/// Sequence numbers from one up to another that is not below it.
std::uint32_t distance(int from, int to) {
    return static_cast<std::uint32_t>(to) - static_cast<std::uint32_t>(from);
}

bool survives(int seq, int thinning) {
    return (static_cast<std::uint32_t>(seq) & ((1u << thinning) - 1)) == 0;
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

}  // namespace

/// Calls act(sequence number, event) for every event of the period in ascending order.
template <typename action>
void rtcp_xr::for_each_event(action const& act) const {
    int remaining = event_count;
    for (int i = 0; i < event_window && remaining > 0; i++) {
        if (events[i].count == 0)
            continue;
        remaining--;
        act(seq_at(i), events[i]);
    }
}

/// The block of the least thinning that is shorter than the limit; empty when none is or nothing is wanted.
template <typename builder>
str rtcp_xr::thin_until_shorter(int largest_bytes, builder const& build) {
    for (int thinning = 0; largest_bytes > 0 && thinning <= most_thinning; thinning++) {
        str const block = build(thinning);
        if (block.length() < largest_bytes)
            return block;
    }
    return str();
}

str rtcp_xr::get_rle_block(str const& remote_ssrc, int block_type, int thinning) const {
    rle_report_block block;
    int last = begin_seq;
    for_each_event([&](int seq, packet_event const& event) {
        if (!survives(seq, thinning))
            return;
        if (seq > last + 1LL)
            block.add_bits(last, false, distance(last + 1, seq));
        last = seq;
        block.add_bit(seq, block_type == loss_rle_block || event.count >= 2);
    });
    return block.get_rle(remote_ssrc, block_type, thinning);
}

str rtcp_xr::get_loss_rle(str const& remote_ssrc) const {
    return thin_until_shorter(
        loss_rle_max, [&](int thinning) { return get_rle_block(remote_ssrc, loss_rle_block, thinning); });
}

str rtcp_xr::get_dup_rle(str const& remote_ssrc) const {
    return thin_until_shorter(
        dup_rle_max, [&](int thinning) { return get_rle_block(remote_ssrc, dup_rle_block, thinning); });
}

/// Neighbouring sequence numbers form a group: its first number, the one behind its last, then the arrival times.
str rtcp_xr::get_receipt_times(str const& remote_ssrc, int thinning) const {
    str groups;
    str times;
    int first = 0;
    long long behind_last = LLONG_MIN;
    auto const close_group = [&] {
        if (!times.empty())
            groups += short_field(first) + short_field(static_cast<int>(behind_last)) + times;
        times.clear();
    };
    for_each_event([&](int seq, packet_event const& event) {
        if (!survives(seq, thinning))
            return;
        if (seq != behind_last) {
            close_group();
            first = seq;
        }
        times += long_field(event.time);
        behind_last = seq + 1LL;
    });
    close_group();
    return block_start(receipt_times_block, thinning, groups.length() / 4 + 1) + remote_ssrc + groups;
}

str rtcp_xr::get_rcpt_times(str const& remote_ssrc) const {
    return thin_until_shorter(rcpt_times_max,
                              [&](int thinning) { return get_receipt_times(remote_ssrc, thinning); });
}

str rtcp_xr::get_stat_summary(str const& remote_ssrc) const {
    constexpr int loss_dup_and_jitter = 0xE0;
    int lowest = INT_MAX;
    int highest = 0;
    std::uint32_t lost = 0;
    std::uint32_t duplicates = 0;
    int remaining = event_count;
    for (int i = 0; i < event_window - 1 && remaining > 0; i++) {
        int const seq = seq_at(i);
        if (events[i].count > 0) {
            remaining--;
            lowest = std::min(lowest, seq);
            highest = std::max(highest, seq);
        } else if (lowest < seq) {
            lost++;
        }
        if (events[i].count >= 2)
            duplicates++;
    }
    int const mean = rounded(jitter_sum, jitter_count);
    long long const mean_square =
        jitter_count == 0 ? 0 : wrapping_add(jitter_square_sum, jitter_count / 2LL) / jitter_count;
    return block_start(stat_summary_block, loss_dup_and_jitter, 9) + remote_ssrc + short_field(lowest) +
           short_field(highest) + long_field(lost) + long_field(duplicates) +
           long_field(static_cast<std::uint32_t>(jitter_min)) +
           long_field(static_cast<std::uint32_t>(jitter_max)) + long_field(static_cast<std::uint32_t>(mean)) +
           long_field(square_root(mean_square - static_cast<long long>(mean) * mean)) + long_field(0);
}

/// Feeds the period's packets to the burst logic.
void rtcp_xr::calculate_voip_metrics() {
    for_each_event([&](int seq, packet_event const& event) {
        if (bursts.get_position() > 0 && seq > last_fed_seq + 1LL)
            bursts.add_lost(distance(last_fed_seq + 1, seq));
        bursts.add_received(event.time);
        last_fed_seq = seq;
    });
}

str rtcp_xr::get_voip_metrics(str const& remote_ssrc, int peer_delay) const {
    int const position = bursts.get_position();
    int const burst_total = bursts.burst_total_ms();
    int const gap_total = bursts.gap_total_ms();
    int const burst_duration = std::min(rounded(burst_total, bursts.burst_number()), 65535);
    int const gap_duration = std::min(rounded(gap_total, bursts.get_bursts() + 1), 65535);
    str block = block_start(voip_metrics_block, 0, 8) + remote_ssrc;
    block += str(byte_field(share(bursts.get_lost(), position)), byte_field(share(discarded, position)),
                 byte_field(share(bursts.get_burst_lost(), burst_total)),
                 byte_field(share(bursts.get_gap_lost(), gap_total)));
    block += short_field(burst_duration) + short_field(gap_duration);
    block += short_field(peer_delay) + short_field(0);
    block += str(unavailable, unavailable, unavailable, gmin);
    block += str('\0', 4);  // R factors and MOS
    block += short_field(peer_delay) + short_field(rounded(jb_sum, jb_samples));
    block += str(byte_field(jb_max), byte_field(jb_max >> 8), 0xFF, 0xFF);
    return block;
}

/// The seconds start one second off from, and the fraction has a thousandth of the scale of, the sender report's;
/// peers depend on both.
str rtcp_xr::get_rrtrb(rtimestamp const& now) const {
    constexpr std::uint32_t seconds_offset = 2085978497;
    std::uint32_t const seconds =
        static_cast<std::uint32_t>(now.get_seconds()) + ntp_timediff + seconds_offset;
    std::uint64_t const fraction = (static_cast<std::uint64_t>(now.get_milliseconds()) << 32) / 1000000;
    return block_start(rrtr_block, 0, 2) + long_field(seconds) +
           long_field(static_cast<std::uint32_t>(fraction));
}

/// Answers the peer's receiver reference time, once.
str rtcp_xr::get_dlrr_block(str const& remote_ssrc, rtimestamp const& now) {
    if (lrr.length() != 4)
        return str();
    std::uint64_t const ticks = static_cast<std::uint64_t>(now.diff_ticks(lrr_time));
    std::uint32_t const delay = static_cast<std::uint32_t>(ticks << 16) / 1000000u;
    str const block = block_start(dlrr_block, 0, 3) + remote_ssrc + lrr + long_field(delay);
    lrr.clear();
    lrr_time.clear();
    return block;
}

str rtcp_xr::get_blocks(str const& remote_ssrc, int peer_delay) {
    if (!started) {
        started = true;
        bool found = false;
        for_each_event([&](int seq, packet_event const&) {
            if (!found)
                begin_seq = static_cast<int>(static_cast<std::uint32_t>(seq) - 1);
            found = true;
        });
    }
    str blocks = get_loss_rle(remote_ssrc) + get_dup_rle(remote_ssrc) + get_rcpt_times(remote_ssrc);
    if (stat_summary)
        blocks += get_stat_summary(remote_ssrc);
    if (voip_metrics) {
        calculate_voip_metrics();
        blocks += get_voip_metrics(remote_ssrc, peer_delay);
    }
    if (rcvr_rtt) {
        rtimestamp const now = rtimestamp::now();
        blocks += get_rrtrb(now);
        blocks += get_dlrr_block(remote_ssrc, now);
    }
    return blocks;
}
