#include "fuzz/fuzz_target.h"

#include "lib/extensions.h"
#include "lib/random.h"
#include "lib/timeout.h"
#include "sim/world.h"
#include "srtp/aes.h"

namespace {

constexpr int block_bytes = 160;  // 10 ms

channel& idle_channel() {
    if (!channels.valid(0)) {
        aes_compute_tables();
        channels.resize(channel_count);
        for (int i = 0; i < channel_count; i++)
            channels[i].set_id(i);
    }
    utils::seed_rand(1);
    channels[0].init();
    // The contexts keep the material of the last call.
    channels[0].set_srtp(str('r', 30), str('t', 30), 10, str("mki"));
    channels[0].init();
    return channels[0];
}

}  // namespace

str fuzz_input::bytes(unsigned n) {
    std::size_t const left = static_cast<std::size_t>(end - at);
    int const taken = static_cast<int>(n < left ? n : left);
    str const result(at, taken);
    at += taken;
    return result;
}

void fuzz_target::choose_extensions() {
    char const* const list = std::getenv("FXSMEDIA_EXTENSIONS");
    if (list && !extensions.add(list))
        std::fprintf(stderr, "no such extension in \"%s\"\n", list), std::exit(1);
}

fuzz_target const* fuzz_target::find(std::string const& name) {
    fuzz_target const* found = first;
    while (found && found->name != name)
        found = found->next;
    return found;
}

fuzz_call::fuzz_call() : tested(idle_channel()), memory_before(sim::world::pool_in_use()) {
    init_timestamps();
    str map;
    for (unsigned i = 0; i < 128; i++)
        map += static_cast<unsigned char>(i == 127 ? 0xFF : i % 8);
    tested.set_codec(0, 8, 101, map, 20);
    tested.set_ssrc(str("SSRC"));
    tested.set_call_id(str("call"));
    tested.set_rtcp_xr(str("pkt-loss-rle pkt-dup-rle=100 pkt-rcpt-times=60 rcvr-rtt stat-summary voip-metrics"));
}

fuzz_call::~fuzz_call() {
    idle_channel();
    FUZZ_CHECK(!tested.output_available());
    FUZZ_CHECK(sim::world::pool_in_use() == memory_before);
    FUZZ_CHECK(timeout_queue::global_queue.empty());
}

void fuzz_call::advance(unsigned hundredths) {
    clock.advance(hundredths);
    while (timeout_queue::global_queue.delay(false) == 0)
        timeout_queue::global_queue.next();
}

void fuzz_call::play(int n) {
    for (; n > 0; n--) {
        bool const available = tested.output_available();
        bool talk_spurt = false;
        str const block = tested.get_samples(talk_spurt);
        FUZZ_CHECK(block.length() == block_bytes);
        FUZZ_CHECK(available || extensions.playout || block == str('\0', block_bytes));  // it makes up speech
    }
}

void fuzz_call::report() {
    std::uint64_t const before = str::allocated_size;
    tested.send_rtcp_sr();
    FUZZ_CHECK(str::allocated_size - before < (8u << 20));
}
