#include "sim/world.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <unistd.h>

#include "lib/protocol.h"
#include "lib/tlv.h"
#include "tests/support/bytes.h"

namespace {

using namespace std::literals;
using namespace protocol;

/// Writes down, in order and with the time, what the process does; the far end is an echo.
struct diary : sim::surroundings {
    std::string text;
    sim::world* world = nullptr;
    int blocks = 0, loudest = 0;

    void note(std::string_view what, std::string_view data) {
        text +=
            std::to_string(world ? world->now() / sim::us : -1) + " " + std::string(what) + " " + to_hex(data) + "\n";
    }
    void report(std::string_view data) override { note("report", data); }
    void sent(sim::endpoint const&, sim::endpoint const& to, std::string_view data) override {
        note("sent to " + std::to_string(to.port), data);
    }
    void arrived(sim::endpoint const& from, sim::endpoint const& to, std::string_view data) override {
        world->transmit(to, from, data);
    }
    sim::path route(sim::endpoint const&, sim::endpoint const&) override { return {20000, 30000, 50, 50}; }
    int request(int, unsigned number) override {
        note("request", be32(number));
        return 0;
    }
    void line(int, std::int16_t const* heard, std::int16_t* said) override {
        for (int i = 0; i < sim::block_samples; i++) {
            said[i] = static_cast<std::int16_t>(i % 8 < 4 ? 5000 : -5000);
            if (heard)
                loudest = std::max<int>(loudest, std::abs(heard[i]));
        }
        blocks++;
    }
};

str call_command(int tag, str const& fields) {
    return cmd_get_tlv_str(tag, cmd_get_tlv_short(call_field, 0) + fields);
}

/// Half a second with an echo over a bad path; ends in the middle of things.
std::string echo_call(std::uint64_t seed, std::uint32_t clock_start) {
    diary around;
    sim::world w(around, {.seed = seed, .clock_start = clock_start});
    around.world = &w;
    w.command(call_command(cmd_open::tag, cmd_get_tlv_str(cmd_open::call_id, str("id"))));
    w.command(
        call_command(cmd_media::tag, cmd_get_tlv_str(cmd_media::send_codec, str(8, 2)) +
                                         cmd_get_tlv_str(cmd_media::codec_map, str(2, 8)) +
                                         cmd_get_tlv_address(cmd_media::rtp_dest, ip_port(str(203, 0, 113, 9), 5000))));
    w.command(call_command(cmd_tdm_channel::tag, cmd_get_tlv_short(cmd_tdm_channel::slot, 1)));
    w.run_ms(500);
    EXPECT_EQ(around.blocks, 50);
    EXPECT_GT(around.loudest, 4500) << "the echo was heard";
    EXPECT_FALSE(w.idle());
    w.driver_text("half a line");
    w.command("\x00\x13\xFF\xFFhalf a command"sv);
    w.run_ms(20);
    EXPECT_EQ(w.trouble(), nullptr);
    return around.text;
}

TEST(world, repeats_itself_whatever_ran_before) {
    std::string const first = echo_call(1, 0xFFFFFFF0);
    std::uint64_t const used = sim::world::pool_in_use();
    EXPECT_NE(echo_call(2, 5), first);
    EXPECT_EQ(echo_call(1, 0xFFFFFFF0), first);
    EXPECT_EQ(sim::world::pool_in_use(), used);
    EXPECT_GT(first.size(), 1000u);
}

TEST(world, sees_what_the_process_must_not_do) {
    diary around;
    sim::world w(around);
    around.world = &w;
    EXPECT_TRUE(w.idle());
    w.fail(sim::call::open, ENODEV);
    for (int const blocks : {0, 10}) {
        w.command(call_command(cmd_tdm_channel::tag, cmd_get_tlv_short(cmd_tdm_channel::slot, 1)));
        w.run_ms(100);
        EXPECT_EQ(around.blocks, blocks);
    }
    w.end_all_calls();
    w.run_ms(3000);
    EXPECT_TRUE(w.idle());
    EXPECT_EQ(w.trouble(), nullptr);
    EXPECT_EQ(close(200), -1);
    EXPECT_STREQ(w.trouble(), "a closed descriptor was closed");
}

}  // namespace
