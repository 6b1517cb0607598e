#include "tests/attack/attacker.h"

namespace {

// What any address sends is one stream to the process, and an element that announces 65,535 bytes swallows the
// commands behind it. Waiting are then an element but for its last byte and the datagram that completes it: in three
// blocks of the pool (the datagram, the stream before and after it) 64 KiB + 2 x 128 KiB, and as much again for the
// copies that the pool keeps of other sizes on the way there.
constexpr long most_stream_kb = 1024;

TEST(Control, APoisonedStreamSilencesCommandsButNotMediaAndTimers) {
    char const* const poisons[] = {"0000FFFF", "0013FFFF", "00", "000000"};
    auto const lines = speakers();
    std::vector<std::unique_ptr<controlled_process>> attacked;
    std::vector<long> before_kb;
    for (std::uint16_t line = 0; line < 4; line++) {
        auto& process = *attacked.emplace_back(
            std::make_unique<controlled_process>(std::vector<std::string>{"--tdm", lines->tdm_path()}));
        protocol::address const itself{{127, 0, 0, 1}, process.open(0).rtp_port};
        tell(process,
             protocol::media_command{.call = 0, .send = linear, .map = {linear}, .rtp_dest = itself});
        process.put_on_line(0, line);
        EXPECT_GE(answer_ms(process), 0);
        before_kb.push_back(memory_kb(process));
    }
    ASSERT_TRUE(lines->wait_for_open(4));
    std::string full;  // of elements that never end
    while (full.size() < 65000)
        full += from_hex("0000FFFF");
    for (unsigned i = 0; i < 4; i++) {
        SCOPED_TRACE(poisons[i]);
        stranger attacker(attacked[i]->port);
        attacker.send(from_hex(poisons[i]));
        EXPECT_EQ(answer_ms(*attacked[i], 300ms), -1);
        EXPECT_TRUE(attacked[i]->client.wait_for<protocol::heartbeat>(patience));
        for (int sent = 0; sent < 100; sent++, usleep(500))
            attacker.send(full);
        EXPECT_TRUE(hears(*lines, i)) << "itself";
        long const grown_kb = memory_kb(*attacked[i]) - before_kb[i];
        std::printf("poison %s: commands are lost, media and heartbeats go on, %ld kB more memory\n",
                    poisons[i], grown_kb);
        EXPECT_LT(grown_kb, most_stream_kb);
    }
}

}  // namespace
