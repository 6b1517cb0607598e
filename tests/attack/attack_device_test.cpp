#include "tests/attack/attacker.h"

namespace {

// Each dead device is tried once in 10 ms.
TEST(Device, DeadOnesCostLittle) {
    auto const lines = speakers();
    terminal line, signalling;
    line_links devices;
    devices.link(0, line.device());
    devices.link(1, "/dev/null");
    devices.link(2, lines->tdm_path() + "2");
    devices.link(3, lines->tdm_path() + "3");
    controlled_process process({"--tdm", devices.tdm_path(), "--tunnel", signalling.device()});
    process.connect(0, 1, linear);
    process.connect(2, 3, linear);
    for (std::uint16_t call = 0; call < 4; call++)
        process.put_on_line(call, call);
    ASSERT_TRUE(lines->wait_for_open(2));
    EXPECT_TRUE(hears(*lines, 3));
    line.hang_up();
    signalling.hang_up();
    process.send(protocol::encode(protocol::playback_command{.call = 0, .tone_set = 1, .kind = 4}));
    EXPECT_GE(answer_ms(process), 0);

    long const before_ms = processor_ms(process.process.pid());
    auto const begin = std::chrono::steady_clock::now();
    int log_lines = 0;
    while (ms_since(begin) < 2000)
        if (auto const report = process.client.receive(100ms))
            log_lines += std::holds_alternative<protocol::log_line>(*report);
    int const wall_ms = ms_since(begin);
    long const used_ms = processor_ms(process.process.pid()) - before_ms;
    std::printf(
        "two dead lines and a dead signalling device: %.1f %% of a processor, %d log lines a second\n",
        100.0 * static_cast<double>(used_ms) / wall_ms, 1000 * log_lines / wall_ms);
    EXPECT_LT(used_ms, wall_ms * 15 / 100);
    EXPECT_LT(1000 * log_lines / wall_ms, 250);
    EXPECT_GT(log_lines, 0) << "they are tried";
    EXPECT_TRUE(hears(*lines, 3));
}

}  // namespace
