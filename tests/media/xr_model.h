#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "tests/support/bytes.h"

/// The chunks of one run-length encoded list of bits, cut out of the list as a whole: a run of up to 16383 equal bits
/// becomes a chunk when it is at least 15 long, full or last; a shorter one is lost, and so is the bit behind it, and
/// the 15 bits that follow become a vector.
inline std::string model_chunks(std::vector<bool> const& bits) {
    std::string chunks;
    std::size_t const n = bits.size();
    bool value = false;
    std::size_t length = 0;
    bool vector_last = false;
    for (std::size_t i = 0; i < n;) {
        value = bits[i];
        for (length = 0; i + length < n && bits[i + length] == value && length < 16383;)
            length++;
        vector_last = false;
        if (i + length == n || length >= 15) {
            i += length;
            if (i < n)
                chunks += be16((value ? 0x4000u : 0u) + static_cast<unsigned>(length));
            continue;
        }
        i += length + 1;
        unsigned vector = 0;
        for (std::size_t k = 0; k < 15; k++)
            vector = vector * 2 + (i + k < n && bits[i + k] ? 1 : 0);
        chunks += be16(0x8000 + vector);
        vector_last = i + 15 > n;
        i = std::min(i + 15, n);
        length = 0;
    }
    if (!vector_last)
        chunks += be16((value ? 0x4000u : 0u) + static_cast<unsigned>(length));
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
            base = static_cast<std::int64_t>(seq) - 16;
        if (seq < base || seq >= base + 512)
            return;
        if (period.count(seq) == 0)
            period[seq] = {timestamp, time, 0};
        period[seq].copies++;
        highest = std::max<std::int64_t>(highest, seq);
    }
    void discard() { discarded++; }
    void jitter_buffer(int ms) { sizes.push_back(ms); }

    int jitter() {
        transits.clear();
        std::int64_t j = 0;
        for (auto const& [seq, known] : period) {
            auto const next = period.find(seq + 1);
            if (next == period.end())
                continue;
            auto const d =
                static_cast<std::int32_t>(next->second.timestamp - known.timestamp) -
                static_cast<std::int64_t>(static_cast<std::int32_t>(next->second.time - known.time));
            transits.push_back(std::abs(d));
            j += (transits.back() - j) / 16;
        }
        return static_cast<int>(j);
    }

    std::string packet(std::string const& remote, std::string const& local, unsigned delay, long long now_ns,
                       std::uint32_t ntp_offset) {
        if (period.empty())
            return "";
        if (!started)
            before = period.begin()->first - std::int64_t{1};
        started = true;
        std::string blocks = rle(1, loss_max, remote) + rle(2, dup_max, remote) + receipt_times(remote);
        if (summary)
            blocks += statistics(remote);
        if (voip)
            blocks += metrics(remote, delay);
        if (rtt)
            blocks += reference(now_ns, ntp_offset) + answer(remote, now_ns);
        before = highest;
        period.clear();
        sizes.clear();
        return from_hex("80CF") + be16(static_cast<unsigned>(blocks.size() / 4 + 1)) + local + blocks;
    }

private:
    struct event {
        std::uint32_t timestamp, time;
        int copies;
    };
    struct fed {
        bool received;
        std::uint32_t time;
    };

    static std::string head(int type, int specific, std::size_t words) {
        return std::string{static_cast<char>(type), static_cast<char>(specific)} +
               be16(static_cast<unsigned>(words));
    }
    static std::int64_t nearest(std::int64_t a, std::int64_t b) { return (a + b / 2) / b; }

    std::string rle(int type, int limit, std::string const& remote) const {
        for (int t = 0; t < 16 && limit > 0; t++) {
            std::vector<bool> bits;
            std::int64_t last = before, begin = -1, behind = 0;
            auto const add = [&](std::int64_t seq, bool bit) {
                begin = begin < 0 ? seq : begin;
                behind = seq + 1;
                bits.push_back(bit);
            };
            for (auto const& [seq, known] : period) {
                if (seq % (1 << t) != 0)
                    continue;
                for (; seq > last + 1; last++)
                    add(last, false);
                last = seq;
                add(seq, type == 1 || known.copies > 1);
            }
            std::string const chunks = model_chunks(bits);
            std::string const block = head(type, t, chunks.size() / 4 + 2) + remote +
                                      be16(static_cast<unsigned>(begin & 0xFFFF)) +
                                      be16(static_cast<unsigned>(behind & 0xFFFF)) + chunks;
            if (block.size() < static_cast<std::size_t>(limit))
                return block;
        }
        return "";
    }

    std::string receipt_times(std::string const& remote) const {
        for (int t = 0; t < 16 && times_max > 0; t++) {
            std::string groups;
            for (auto from = period.begin(); from != period.end();) {
                std::string times;
                std::int64_t seq = from->first;
                auto const first = static_cast<unsigned>(seq);
                if (seq % (1 << t) != 0) {
                    ++from;
                    continue;
                }
                for (; from != period.end() && from->first == seq && seq % (1 << t) == 0; ++from, ++seq)
                    times += be32(from->second.time);
                groups += be16(first & 0xFFFF) + be16(static_cast<unsigned>(seq & 0xFFFF)) + times;
            }
            std::string const block = head(3, t, groups.size() / 4 + 1) + remote + groups;
            if (block.size() < static_cast<std::size_t>(times_max))
                return block;
        }
        return "";
    }

    std::string statistics(std::string const& remote) const {
        std::int64_t lowest = std::numeric_limits<std::int32_t>::max(), top = 0;
        unsigned lost = 0, duplicates = 0;
        std::size_t left = period.size();
        for (std::int64_t seq = base; seq < base + 511 && left > 0; seq++) {
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
        std::int64_t sum = 0, squares = 0, least = std::numeric_limits<std::int32_t>::max(), most = 0;
        for (std::int64_t const d : transits) {
            sum += d;
            squares += d * d;
            least = std::min(least, d);
            most = std::max(most, d);
        }
        auto const n = static_cast<std::int64_t>(transits.size());
        std::int64_t const mean = n ? nearest(sum, n) : 0;
        std::int64_t const variance = n ? nearest(squares, n) - mean * mean : 0;
        std::int64_t deviation = 0;
        if (variance > 0)
            deviation = static_cast<std::int64_t>(std::sqrt(static_cast<long double>(variance)));
        return head(6, 0xE0, 9) + remote + be16(static_cast<unsigned>(lowest & 0xFFFF)) +
               be16(static_cast<unsigned>(top & 0xFFFF)) + be32(lost) + be32(duplicates) +
               be32(static_cast<std::uint32_t>(least)) + be32(static_cast<std::uint32_t>(most)) +
               be32(static_cast<std::uint32_t>(mean)) + be32(static_cast<std::uint32_t>(deviation)) + be32(0);
    }

    /// The fed packet that lies `back` behind the newest; those before the first count as received at 0.
    fed behind_newest(std::size_t back) const {
        return back < all.size() ? all[all.size() - 1 - back] : fed{true, 0};
    }

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
            burst_ms += static_cast<std::int32_t>(end - burst_from) / 8;
            burst_from = end;
            bursts++;
        }
        (bursting ? lost_in_burst : lost_in_gap)++;
    }

    std::string metrics(std::string const& remote, unsigned delay) {
        for (auto const& [seq, known] : period) {
            if (!all.empty())
                for (std::int64_t missing = last_fed + 1; missing < seq; missing++)
                    feed({false, 0});
            if (all.empty())
                first_time = known.time;
            last_time = known.time;
            feed({true, known.time});
            last_fed = seq;
        }
        auto const ms_since = [&](std::uint32_t from) {
            return (static_cast<std::int32_t>(last_time - from) + std::int64_t{4}) / 8;
        };
        auto const share = [](std::int64_t part, std::int64_t whole) {
            return static_cast<char>(whole < 1 ? 0 : std::min<std::int64_t>(nearest(part * 256, whole), 255));
        };
        auto const field = [](std::int64_t v) { return be16(static_cast<unsigned>(v & 0xFFFF)); };
        auto const position = static_cast<std::int64_t>(all.size());
        std::int64_t const total = burst_ms + (bursting ? ms_since(burst_from) : 0),
                           number = bursts + bursting;
        std::int64_t const gaps = ms_since(first_time) - total;
        std::int64_t sum = 0, most = 0;
        for (int const ms : sizes) {
            sum += ms;
            most = std::max<std::int64_t>(most, ms);
        }
        std::string block = head(7, 0, 8) + remote;
        block += share(lost_in_burst + lost_in_gap, position);
        block += share(discarded, position);
        block += share(lost_in_burst, total);
        block += share(lost_in_gap, gaps);
        block += field(number ? std::min<std::int64_t>(nearest(total, number), 65535) : 0) +
                 field(std::min<std::int64_t>(nearest(gaps, bursts + 1), 65535)) + field(delay) + field(0);
        block += from_hex("7F7F7F10 00000000");
        block +=
            field(delay) + field(sizes.empty() ? 0 : nearest(sum, static_cast<std::int64_t>(sizes.size())));
        return block + static_cast<char>(most) + static_cast<char>(most >> 8) + "\xFF\xFF";
    }

    static std::string reference(long long now_ns, std::uint32_t ntp_offset) {
        auto const ms = static_cast<std::uint64_t>(now_ns / 1000000 % 1000);
        return head(4, 0, 2) +
               be32(static_cast<std::uint32_t>(now_ns / 1000000000) + ntp_offset + 2085978497u) +
               be32(static_cast<std::uint32_t>(ms * 4294967296u / 1000000));
    }

    std::string answer(std::string const& remote, long long now_ns) {
        if (reference_time.empty())
            return "";
        auto const passed = static_cast<std::uint64_t>(now_ns - reference_arrival_ns) * 65536;
        std::string const block =
            head(5, 0, 3) + remote + reference_time + be32(static_cast<std::uint32_t>(passed) / 1000000);
        reference_time.clear();
        return block;
    }

    std::map<std::int64_t, event> period;
    std::int64_t base = 0, before = 0;
    std::int64_t highest = 0;
    bool started = false;
    std::vector<std::int64_t> transits;
    std::vector<int> sizes;
    std::int64_t discarded = 0;

    std::vector<fed> all;
    std::int64_t last_fed = 0;
    std::uint32_t first_time = 0, last_time = 0, burst_from = 0;
    bool bursting = false;
    std::int64_t burst_ms = 0, bursts = 0, lost_in_burst = 0, lost_in_gap = 0;
};
