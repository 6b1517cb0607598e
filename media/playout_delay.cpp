#include "media/playout_delay.h"

#include <algorithm>

#include "lib/pcm.h"
#include "media/speech_queue.h"

namespace {

using pcm::block_samples;

constexpr int one_ms = pcm::samples_per_ms;
// Lateness that the packets' delays don't explain (clocks that drift fast, packets that begin in the midst of a block):
// 2 ms more for each packet that comes too late in part, 0.8 ms less a second, in 1/16 tick.
constexpr int shortage_unit = 16;
constexpr int shortage_step = 2 * one_ms * shortage_unit;
constexpr int most_shortage = 20 * one_ms * shortage_unit;
constexpr int reserve = 5 * one_ms / 2;             // what is left of a block's time when it is decided, and a little
constexpr int tolerance = 5 * one_ms / 2;           // of what is left after lowering
constexpr std::uint32_t clock_step = 500 * one_ms;  // arrival times against the line: the system's clock was set

/// Down to whole blocks.
int whole_blocks(int ticks) {
    return (ticks >= 0 ? ticks : ticks - block_samples + 1) / block_samples * block_samples;
}

}  // namespace

void playout_delay::restart(std::uint32_t transit) {
    delays.clear();
    reference = transit;
    packets_measured = 0;
}

void playout_delay::add(arrival const& packet) {
    std::uint32_t const transit = packet.at - packet.timestamp;
    if ((packet.at - measured_arrival) - (line_time - measured_at) + clock_step > 2 * clock_step)
        restart(transit);
    measured_arrival = packet.at;
    measured_at = line_time;
    int const late = delays.add(packet.timestamp, packet.at);
    if (packet.missed && late <= delays.get_usual() && surplus() >= 0)
        note_trouble();  // it would have come in time: that was decided too early
    int const whole = whole_blocks(packet.ahead);
    note_position({packet.until_taken + whole + static_cast<int>(transit - reference), packet.ahead - whole});
}

void playout_delay::note_position(position const& measured) {
    constexpr int period = 16;
    if (packets_measured % period == 0) {
        positions[1] = packets_measured == 0 ? measured : positions[0];
        positions[0] = measured;
    }
    packets_measured++;
    positions[0].slack = std::min(positions[0].slack, measured.slack);
    positions[0].spare = std::min(positions[0].spare, measured.spare);
}

void playout_delay::pass_block() {
    line_time += block_samples;
    careful = std::max(careful - block_samples, 0);
    shortage = std::max(shortage - 1, 0);
}

void playout_delay::move(int by) {
    for (position& p : positions) {
        int const whole = whole_blocks(p.spare + by);
        p.slack += whole;
        p.spare += by - whole;
    }
}

int playout_delay::wanted() const {
    return delays.get_usual() + shortage / shortage_unit + (is_careful() ? block_samples : reserve);
}

int playout_delay::surplus() const {
    int const slack = std::min(positions[0].slack, positions[1].slack);
    return slack + static_cast<int>(reference - delays.get_fastest()) - wanted();
}

int playout_delay::spare() const {
    return std::min(positions[0].spare, positions[1].spare);
}

int playout_delay::allowed_cut() const {
    int const over = surplus() - tolerance;
    return over < 0 ? 0 : whole_blocks(over) + spare();
}

int playout_delay::wanted_stretch() const {
    int const missing = whole_blocks(block_samples - 1 - surplus()) - spare();
    return missing < 2 * speech_queue::shortest_period ? speech_queue::longest_period : missing;
}

void playout_delay::note_trouble() {
    if (careful == 0)
        caution = std::min(2 * caution, longest_caution);
    careful = caution;
}

void playout_delay::note_late_part() {
    if (surplus() > 2 * least_surplus)
        shortage = std::min(shortage + shortage_step, most_shortage);
}
