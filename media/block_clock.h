#pragma once

#include <cstdint>

/// The line's blocks as the clock of a stream: how many it has, when it takes the next one, and how long the decision
/// what that one is made of can wait. A line that captures nothing tells of no blocks; after 100 ms without one, they
/// are counted by the time of day. Times are 8 kHz ticks of the clock that stamps packets, too; none is read here.
class block_clock {
public:
    // ---- blocks
    /// A block of any source went to the line.
    void count_block() { queued++; }
    /// Whether the line takes another one, as far as this knows.
    bool has_room() const { return queued < most_queued; }
    /// Whether it has none.
    bool is_empty() const { return queued == 0; }
    /// The line tells that it played a block. False: it had none.
    bool pass_block(std::uint32_t now);

    // ---- lines that capture nothing
    /// Whether the line tells of its blocks.
    bool tells() const { return is_captured; }
    /// A packet came: shows whether the line still tells of its blocks.
    void see(std::uint32_t now);
    /// Whether a block that it doesn't tell of must be over by now.
    bool is_block_over(std::uint32_t now) const;
    /// That block is over, as pass_block().
    bool pass_untold_block(std::uint32_t now);
    /// Ticks until the block that is played now is over; 0: it is.
    int until_block_over(std::uint32_t now) const;

    // ---- how long to wait
    /// Ticks from a time, or from the last block where that is not of the same clock, until the line takes the next
    /// block that is not given out.
    int until_taken(std::uint32_t time) const;
    /// Waits with the next block for as long as possible, 8 ms of the 10. Returns the ticks that are left; below 0:
    /// none, has_waited() from now on.
    int wait(std::uint32_t now);
    /// Whether the next block was waited for as long as possible.
    bool has_waited() const { return waited; }

private:
    static constexpr int most_queued = 2;  ///< blocks; drivers take two or three

    bool pass();
    int since_block(std::uint32_t now) const { return static_cast<int>(now - passed_at); }

    int queued = 0;               ///< blocks that the line has
    bool waited = false;          ///< for the next block, long enough
    bool is_captured = true;      ///< the line gives blocks
    std::uint32_t passed_at = 0;  ///< time when the last block was played
};
