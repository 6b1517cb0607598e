#include "fuzz/fuzz_target.h"

#include "lib/random.h"
#include "lib/timeout.h"
#include "media/line.h"
#include "srtp/aes_tables.h"

namespace {

std::uint32_t clock_reading = 0;

constexpr int block_bytes = 160;  // 10 ms

void set_up_process() {
    static bool done = false;
    if (done)
        return;
    done = true;
    rtimestamp::raw_clock = [] { return clock_reading; };
    aes_compute_tables();
    channels.resize(channel_count);
    for (int i = 0; i < channel_count; i++)
        channels[i].set_id(i);
}

}  // namespace

str fuzz_input::bytes(unsigned n) {
    std::size_t const left = static_cast<std::size_t>(end - at);
    int const taken = static_cast<int>(n < left ? n : left);
    str const result(at, taken);
    at += taken;
    return result;
}

channel& fuzz_channel() {
    set_up_process();
    utils::seed_rand(1);
    channel& tested = channels[0];
    tested.init();
    str map;
    for (unsigned i = 0; i < 128; i++)
        map += static_cast<unsigned char>(i == 127 ? 0xFF : i % 8);
    tested.set_codec(0, 8, 101, map, 20);
    tested.set_ssrc(str("SSRC"));
    tested.set_call_id(str("call"));
    tested.set_rtcp_xr(
        str("pkt-loss-rle pkt-dup-rle=100 pkt-rcpt-times=60 rcvr-rtt stat-summary voip-metrics"));
    return tested;
}

void fuzz_advance(unsigned hundredths) {
    clock_reading += hundredths;
    while (timeout_queue::global_queue.delay(false) == 0)
        timeout_queue::global_queue.next();
}

void fuzz_play(channel& tested, unsigned n) {
    for (; n > 0; n--) {
        str const block = tested.get_samples();
        FUZZ_CHECK(block.length() == block_bytes);
    }
}

void fuzz_report(channel& tested) {
    std::uint64_t const before = str::allocated_size;
    tested.send_rtcp_sr();
    FUZZ_CHECK(str::allocated_size - before < (8u << 20));
}
