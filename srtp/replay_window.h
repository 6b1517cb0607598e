#pragma once

#include <algorithm>
#include <cstdint>

/// Which packets of a stream came already (RFC 3711 section 3.3.2), by packet index: the newest one and the 1023 before
/// it are known one by one, all before those count as replayed. To be told of authentic packets only.
class replay_window {
public:
    static constexpr std::uint64_t size = 1024;  // chosen: 20 s of 20 ms packets; RFC 3711 wants 64

    bool empty() const { return !any; }
    /// The highest index added; 0 before the first one.
    std::uint64_t get_highest() const { return highest; }

    /// Whether a packet of this index may be accepted.
    bool is_new(std::uint64_t index) const {
        return !any || index > highest || (highest - index < size && !(word_of(index) & bit_of(index)));
    }
    void add(std::uint64_t index) {
        if (!any || index > highest) {
            std::uint64_t const skipped = any ? std::min(index - highest, size) : size;
            for (std::uint64_t i = index - skipped + 1; i != index + 1; i++)
                word_of(i) &= ~bit_of(i);
            highest = index;
            any = true;
        }
        word_of(index) |= bit_of(index);
    }

private:
    static constexpr std::uint64_t word_bits = 32;

    std::uint32_t& word_of(std::uint64_t index) { return seen[index % size / word_bits]; }
    std::uint32_t word_of(std::uint64_t index) const { return seen[index % size / word_bits]; }
    static std::uint32_t bit_of(std::uint64_t index) { return 1u << index % word_bits; }

    std::uint32_t seen[size / word_bits] = {};
    std::uint64_t highest = 0;
    bool any = false;
};
