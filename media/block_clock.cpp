#include "media/block_clock.h"

#include <algorithm>
#include <cstdlib>

#include "lib/pcm.h"

namespace {

using pcm::block_samples;

constexpr int longest_wait = 8 * pcm::samples_per_ms;  // of the 10 until the line takes its block
constexpr int no_capture = 100 * pcm::samples_per_ms;  // without a block: the line gives none

}  // namespace

bool block_clock::pass_block(std::uint32_t now) {
    is_captured = true;
    passed_at = now;
    return pass();
}

bool block_clock::pass() {
    waited = false;
    if (queued == 0)
        return false;
    queued--;
    return true;
}

void block_clock::see(std::uint32_t now) {
    if (since_block(now) > no_capture)
        is_captured = false;
}

bool block_clock::is_block_over(std::uint32_t now) const {
    int const since = since_block(now);
    return !is_captured && (since < 0 || since >= block_samples);
}

bool block_clock::pass_untold_block(std::uint32_t now) {
    int const since = since_block(now);
    passed_at = since >= 0 && since < no_capture ? passed_at + block_samples : now;
    return pass();
}

int block_clock::until_block_over(std::uint32_t now) const {
    return std::max(block_samples - since_block(now), 0);
}

int block_clock::until_taken(std::uint32_t time) const {
    int const since = since_block(time);
    bool const same_clock = std::abs(since) < no_capture;
    return (queued + 1) * block_samples - (same_clock ? std::clamp(since, 0, block_samples) : block_samples);
}

int block_clock::wait(std::uint32_t now) {
    int const since = since_block(now);
    if (since >= 0 && since < longest_wait)
        return longest_wait - since;
    waited = true;
    return -1;
}
