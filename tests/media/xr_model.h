#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/bytes.h"

/// The chunks of one run-length encoded list of bits, cut out of the list as a whole: a run of up to 16383 equal bits
/// becomes a chunk when it is at least 15 long, full or last; a shorter one is lost, and so is the bit behind it, and
/// the 15 bits that follow become a vector. A full vector at the end is followed by an empty run.
inline std::string model_chunks(std::vector<bool> const& bits) {
    std::string chunks;
    std::size_t const n = bits.size();
    bool value = false, ended = false;
    for (std::size_t i = 0; i < n;) {
        std::size_t length = 1;
        value = bits[i];
        while (i + length < n && bits[i + length] == value && length < 16383)
            length++;
        ended = i + length == n;
        if (ended || length >= 15) {
            chunks += be16((value ? 0x4000u : 0u) + static_cast<unsigned>(length));
            i += length;
            continue;
        }
        i += length + 1;
        unsigned vector = 1;
        for (std::size_t const end = i + 15; i < end; i++)
            vector = vector * 2 + (i < n && bits[i]);
        chunks += be16(vector);
        ended = i > n;
    }
    if (!ended)
        chunks += be16(value ? 0x4000 : 0);
    return chunks.size() % 4 ? chunks + be16(0) : chunks;
}

/// What an extended report must hold, computed from the list of all that happened.
class xr_model {
public:
    int loss_max = 0, dup_max = 0, times_max = 0;
    bool summary = false, voip = false, rtt = false;
    std::string reference_time;  ///< 4 bytes; empty: none to be answered
    long long reference_arrival_ns = 0;

    void monitor(std::int32_t seq, std::uint32_t timestamp, std::uint32_t time) {
        if (period.empty())
            base = static_cast<number>(seq) - 16;
        if (seq < base || seq >= base + 512)
            return;
        period.try_emplace(seq, event{timestamp, time, 0}).first->second.copies++;
        highest = std::max<number>(highest, seq);
    }
    void discard() { discarded++; }
    void jitter_buffer(int ms) { sizes.push_back(ms); }

    int jitter() {
        transits.clear();
        number j = 0;
        for (auto const& [seq, a] : period)
            if (auto const b = period.find(seq + 1); b != period.end()) {
                transits.push_back(std::abs(since(b->second.timestamp, a.timestamp) - since(b->second.time, a.time)));
                j += (transits.back() - j) / 16;
            }
        return static_cast<int>(j);
    }

    std::string packet(std::string const& remote_ssrc, std::string const& local, unsigned delay, long long now_ns,
                       std::uint32_t ntp_offset) {
        if (period.empty())
            return "";
        remote = remote_ssrc;
        if (!started)
            before = period.begin()->first - 1;
        started = true;
        std::string blocks = rle(1, loss_max) + rle(2, dup_max) + receipt_times();
        if (summary)
            blocks += statistics();
        if (voip)
            blocks += metrics(delay);
        if (rtt)
            blocks += reference(now_ns, ntp_offset) + answer(now_ns);
        before = highest;
        period.clear();
        sizes.clear();
        return from_hex("80CF") + be16(static_cast<unsigned>(blocks.size() / 4 + 1)) + local + blocks;
    }

private:
    using number = std::int64_t;
    struct event {
        std::uint32_t timestamp, time;
        int copies;
    };
    struct fed {
        bool received;
        std::uint32_t time;
    };

    static number since(std::uint32_t a, std::uint32_t b) { return static_cast<std::int32_t>(a - b); }
    static number nearest(number a, number b) { return b ? (a + b / 2) / b : 0; }
    static std::string field(number v) { return be16(static_cast<unsigned>(v & 0xFFFF)); }
    static std::string long_field(number v) { return be32(static_cast<std::uint32_t>(v)); }

    std::string block(int type, int specific, std::string const& body) const {
        return field(type << 8 | specific) + field(static_cast<number>(body.size()) / 4 + 1) + remote + body;
    }
    /// The block of the least thinning that is shorter than the limit.
    template <typename builder>
    std::string thinned(int type, int limit, builder const& body) const {
        for (int t = 0; t < 16; t++)
            if (std::string const one = block(type, t, body(1 << t)); static_cast<int>(one.size()) < limit)
                return one;
        return "";
    }

    std::string rle(int type, int limit) const {
        return thinned(type, limit, [&](int each) {
            std::vector<bool> bits;
            number last = before, begin = -1;
            auto const add = [&](number seq, bool bit) {
                begin = begin < 0 ? seq : begin;
                bits.push_back(bit);
            };
            for (auto const& [seq, known] : period) {
                if (seq % each != 0)
                    continue;
                for (; seq > last + 1; last++)
                    add(last, false);
                add(last = seq, type == 1 || known.copies > 1);
            }
            return field(begin) + field(bits.empty() ? 0 : last + 1) + model_chunks(bits);
        });
    }

    std::string receipt_times() const {
        return thinned(3, times_max, [&](int each) {
            std::string groups, times;
            for (auto const& [seq, known] : period) {
                if (seq % each != 0)
                    continue;
                if (times.empty())
                    groups += field(seq);
                times += be32(known.time);
                if (each > 1 || period.count(seq + 1) == 0)
                    groups += field(seq + 1) + std::exchange(times, "");
            }
            return groups;
        });
    }

    std::string statistics() const {
        constexpr number none = std::numeric_limits<std::int32_t>::max();
        number lowest = none, top = 0, lost = 0, duplicates = 0;
        std::size_t left = period.size();
        for (number seq = base; seq < base + 511 && left > 0; seq++) {
            auto const found = period.find(seq);
            if (found == period.end()) {
                lost += lowest < seq;
                continue;
            }
            left--;
            lowest = std::min(lowest, seq);
            top = std::max(top, seq);
            duplicates += found->second.copies > 1;
        }
        number sum = 0, squares = 0, least = none, most = 0;
        for (number const d : transits) {
            sum += d;
            squares += d * d;
            least = std::min(least, d);
            most = std::max(most, d);
        }
        auto const n = static_cast<number>(transits.size());
        number const mean = nearest(sum, n), variance = std::max<number>(nearest(squares, n) - mean * mean, 0);
        return block(6, 0xE0,
                     field(lowest) + field(top) + long_field(lost) + long_field(duplicates) + long_field(least) +
                         long_field(most) + long_field(mean) +
                         long_field(static_cast<number>(std::sqrt(static_cast<long double>(variance)))) +
                         long_field(0));
    }

    /// The fed packet that lies `back` behind the newest; those before the first count as received at 0.
    fed behind_newest(std::size_t back) const { return back < all.size() ? all[all.size() - 1 - back] : fed{true, 0}; }

    void feed(fed const& f) {
        all.push_back(f);
        if (behind_newest(16).received)
            return;
        bool clean = true;
        for (std::size_t back = 0; back < 16; back++)
            clean = clean && behind_newest(back).received;
        if (!bursting && !clean) {
            bursting = true;
            burst_from = behind_newest(17).time;
        } else if (bursting && clean) {
            bursting = false;
            std::uint32_t const end = behind_newest(15).time;
            burst_ms += since(end, burst_from) / 8;
            burst_from = end;
            bursts++;
        }
        (bursting ? lost_in_burst : lost_in_gap)++;
    }

    std::string metrics(unsigned delay) {
        for (auto const& [seq, known] : period) {
            for (number missing = last_fed + 1; !all.empty() && missing < seq; missing++)
                feed({false, 0});
            feed({true, known.time});
            last_fed = seq;
        }
        auto const ms_since = [&](std::uint32_t from) { return (since(all.back().time, from) + 4) / 8; };
        auto const share = [](number part, number whole) {
            return static_cast<char>(whole < 1 ? 0 : std::min<number>(nearest(part * 256, whole), 255));
        };
        auto const position = static_cast<number>(all.size());
        number const total = burst_ms + (bursting ? ms_since(burst_from) : 0);
        number const gaps = ms_since(all.front().time) - total;
        number sum = 0, most = 0;
        for (int const ms : sizes) {
            sum += ms;
            most = std::max<number>(most, ms);
        }
        return block(7, 0,
                     std::string{share(lost_in_burst + lost_in_gap, position), share(discarded, position),
                                 share(lost_in_burst, total), share(lost_in_gap, gaps)} +
                         field(std::min<number>(nearest(total, bursts + bursting), 65535)) +
                         field(std::min<number>(nearest(gaps, bursts + 1), 65535)) + field(delay) +
                         from_hex("0000 7F7F7F10 00000000") + field(delay) +
                         field(nearest(sum, static_cast<number>(sizes.size()))) + static_cast<char>(most) +
                         static_cast<char>(most >> 8) + "\xFF\xFF");
    }

    static std::string reference(long long now_ns, std::uint32_t ntp_offset) {
        return from_hex("04000002") + long_field(now_ns / 1000000000 + ntp_offset + 2085978497) +
               long_field((now_ns / 1000000 % 1000 << 32) / 1000000);
    }

    std::string answer(long long now_ns) {
        if (reference_time.empty())
            return "";
        auto const passed = static_cast<std::uint64_t>(now_ns - reference_arrival_ns) * 65536;
        return block(5, 0, std::exchange(reference_time, "") + be32(static_cast<std::uint32_t>(passed) / 1000000));
    }

    std::string remote;
    std::map<number, event> period;
    number base = 0, before = 0, highest = 0;
    bool started = false;
    std::vector<number> transits;
    std::vector<int> sizes;
    number discarded = 0;

    std::vector<fed> all;
    number last_fed = 0;
    std::uint32_t burst_from = 0;
    bool bursting = false;
    number burst_ms = 0, bursts = 0, lost_in_burst = 0, lost_in_gap = 0;
};
