#include "sim/world.h"

#include <algorithm>
#include <cerrno>

#include <gtest/gtest.h>
#include <unistd.h>

#include "lib/protocol.h"
#include "lib/tlv.h"

namespace {

using namespace protocol;

struct lines_only : sim::surroundings {
    int blocks = 0;
    void line(int, std::int16_t const*, std::int16_t* said) override {
        std::fill_n(said, sim::block_samples, std::int16_t{0});
        blocks++;
    }
};

TEST(world, sees_what_the_process_must_not_do) {
    lines_only around;
    sim::world w(around);
    EXPECT_TRUE(w.idle());
    w.fail(sim::call::open, ENODEV);
    for (int const blocks : {0, 10}) {
        w.command(cmd_get_tlv_str(cmd_tdm_channel::tag,
                                  cmd_get_tlv_short(call_field, 0) + cmd_get_tlv_short(cmd_tdm_channel::slot, 1)));
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
