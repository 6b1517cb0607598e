#include "fuzz/fuzz_world.h"

#include "control/call_led.h"
#include "lib/tlv.h"
#include "media/channel.h"

namespace {

constexpr std::uint64_t most_memory = 8u << 20;  // bytes that an input of some KB may make the process hold

/// What is in use when no world is there. The first world leaves behind what static objects hold.
std::uint64_t memory_at_rest() {
    static bool warm = false;
    if (!warm) {
        sim::surroundings nobody;
        sim::world(nobody, {});
        warm = true;
    }
    channels.clear();  // of other targets
    return sim::world::pool_in_use();
}

}  // namespace

fuzz_world::fuzz_world(sim::settings const& chosen) : memory_before(memory_at_rest()) {
    world.emplace(*this, chosen);
}

fuzz_world::~fuzz_world() {
    for (int i = 0; i < static_cast<int>(sim::call::count); i++)
        world->fail(static_cast<sim::call>(i), 0, 0);
    for (int unread = 64; unread > 0; unread--)  // a loopback test holds up the commands behind it
        run_ms(1);
    if (blinking)
        set_led1(0);
    world->end_all_calls();
    run_ms(20);
    FUZZ_CHECK(world->idle());
    world.reset();
    FUZZ_CHECK(sim::world::pool_in_use() == memory_before);
}

void fuzz_world::run_ms(int ms) {
    world->run_ms(ms);
    if (char const* const trouble = world->trouble())
        std::fprintf(stderr, "%s\n", trouble), std::abort();
    FUZZ_CHECK(sim::world::pool_in_use() < memory_before + most_memory);
}

void fuzz_world::report(std::string_view datagram) {
    str rest(reinterpret_cast<unsigned char const*>(datagram.data()), static_cast<int>(datagram.size()));
    tlv message;
    FUZZ_CHECK(message.take(rest) && rest.empty());
    FUZZ_CHECK(message.tag >= 2 && message.tag <= 28);
    constexpr int driver_line = 25;
    str fields = message.value;
    for (tlv field; message.tag != driver_line && !fields.empty();)
        FUZZ_CHECK(field.take(fields));
    reported(message.tag, message.value);
}

void fuzz_world::sent(sim::endpoint const& from, sim::endpoint const& to, std::string_view datagram) {
    FUZZ_CHECK(from.port != 0 && to.port != 0);
    FUZZ_CHECK(tunnelling || (datagram.size() >= 12 && (datagram[0] & 0xC0) == 0x80));
}
