#include "tests/attack/attacker.h"

namespace {

/// Processor time so far.
long processor_ms(pid_t pid) {
    long long ns = 0;
    std::ifstream("/proc/" + std::to_string(pid) + "/schedstat") >> ns;
    return static_cast<long>(ns / 1000000);
}

// Each dead device is tried once in 10 ms.
TEST(Device, DeadOnesCostLittle) {
    auto const lines = speakers();
    auto line = std::make_unique<fxsline::signal_device>(),
         signalling = std::make_unique<fxsline::signal_device>();
    ASSERT_EQ(line->create(own_lines + "0") + signalling->create(own_lines + "tty"), "");
    controlled_process process({"--tdm", own_lines, "--tunnel", own_lines + "tty"});
    process.connect(0, 1, linear);
    process.connect(2, 3, linear);
    std::string const devices[] = {"", "/dev/null", lines->tdm_path() + "2", lines->tdm_path() + "3"};
    for (std::uint16_t call = 0; call < 4; call++) {
        std::string const link = own_lines + std::to_string(call);
        if (call > 0)
            std::filesystem::create_symlink(devices[call], link);
        process.put_on_line(call, call);
        std::filesystem::remove(link);
    }
    ASSERT_TRUE(lines->wait_for_open(2));
    EXPECT_TRUE(hears(*lines, 3));
    line.reset();  // hangs up
    signalling.reset();
    tell(process, protocol::playback_command{.call = 0, .tone_set = 1, .kind = 4});
    EXPECT_GE(answer_ms(process), 0);

    long const before_ms = processor_ms(process.process.pid());
    auto const begin = std::chrono::steady_clock::now();
    int log_lines = 0;
    while (ms_since(begin) < 2000)
        if (auto const report = process.client.receive(100ms))
            log_lines += std::holds_alternative<protocol::log_line>(*report);
    long const wall_ms = ms_since(begin), used_ms = processor_ms(process.process.pid()) - before_ms;
    std::printf(
        "two dead lines, a dead signalling device: %ld of %ld ms of a processor, %ld log lines a second\n",
        used_ms, wall_ms, 1000 * log_lines / wall_ms);
    EXPECT_TRUE(used_ms > 0 && used_ms < wall_ms * 15 / 100);
    EXPECT_TRUE(log_lines > 0 && 1000 * log_lines / wall_ms < 250);
    EXPECT_TRUE(hears(*lines, 3));
}

}  // namespace
