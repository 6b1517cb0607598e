#include "tests/attack/attacker.h"
#include "tests/support/bytes.h"

namespace {

// What any address sends is one stream to the process, and an element that announces 65,535 bytes swallows the
// commands behind it. Waiting are then an element but for its last byte and the datagram that completes it: in three
// blocks of the pool (the datagram, the stream before and after it) 64 KiB + 2 x 128 KiB, and as much again for the
// copies that the pool keeps of other sizes on the way there.
constexpr long most_stream_kb = 1024;

TEST(Control, APoisonedStreamSilencesCommandsButNotMediaAndTimers) {
    std::string const poisons[] = {"0000FFFF", "0013FFFF", "00", "000000"};
    auto const lines = speakers();
    std::vector<std::unique_ptr<controlled_process>> attacked;
    std::vector<long> memory_kb;
    for (std::uint16_t line = 0; line < 4; line++) {
        auto& process = *attacked.emplace_back(
            std::make_unique<controlled_process>(std::vector<std::string>{"--tdm", lines->tdm_path()}));
        protocol::open_reply const own = process.open(0);
        process.send(protocol::encode(protocol::media_command{
            // it speaks to itself
            .call = 0,
            .send = linear,
            .map = {linear},
            .rtp_dest = protocol::address{{127, 0, 0, 1}, own.rtp_port}}));
        process.put_on_line(0, line);
        EXPECT_GE(answer_ms(process), 0);
        memory_kb.push_back(status_of(process.process.pid(), "VmRSS"));
    }
    ASSERT_TRUE(lines->wait_for_open(4));
    std::string full;  // of elements that never end
    while (full.size() < 65000)
        full += from_hex("0000FFFF");
    for (unsigned i = 0; i < 4; i++)
        stranger(attacked[i]->port).send(from_hex(poisons[i]));
    for (unsigned i = 0; i < 4; i++) {
        SCOPED_TRACE(poisons[i]);
        EXPECT_EQ(answer_ms(*attacked[i], 300ms), -1);
        EXPECT_TRUE(attacked[i]->client.wait_for<protocol::heartbeat>(patience));
        EXPECT_EQ(answer_ms(*attacked[i], 1ms), -1);
        stranger const flood(attacked[i]->port);
        for (int sent = 0; sent < 100; sent++, usleep(500))
            flood.send(full);
        EXPECT_TRUE(hears(*lines, i));
        pid_t const pid = attacked[i]->process.pid();
        long const grown_kb = status_of(pid, "VmRSS") - memory_kb[i];
        std::printf("poison %s: mute, hears itself, heartbeats go on, %ld kB more memory\n",
                    poisons[i].c_str(), grown_kb);
        EXPECT_LT(grown_kb, is_sanitized(pid) ? 2 * most_stream_kb : most_stream_kb);
    }
}

}  // namespace
