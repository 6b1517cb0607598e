#include "tests/attack/attacker.h"

#include <functional>
#include <thread>

#include "tools/fxsline/driver_links.h"
#include "tools/fxslink/links.h"

namespace {

long memory_kb(controlled_process const& of) {
    return usage(of.process.pid()).resident_kb;
}

// ---- the control port

// What any address sends is one stream to the process, and an element that announces 65,535 bytes swallows the
// commands behind it. Waiting are then an element but for its last byte and the datagram that completes it: in three
// blocks of the pool (the datagram, the stream before and after it) 64 KiB + 2 x 128 KiB, and as much again for the
// copies that the pool keeps of other sizes on the way there.
constexpr long most_stream_kb = 1024;

TEST(control, a_poisoned_stream_silences_commands_but_not_media_and_timers) {
    auto const lines = speakers();
    std::string full;  // of elements that never end
    while (full.size() < 65000)
        full += from_hex("0000FFFF");
    std::uint16_t line = 0;
    for (char const* const poison : {"0000FFFF", "0013FFFF", "00", "000000"}) {
        SCOPED_TRACE(poison);
        controlled_process process({"--tdm", lines->tdm_path()});
        protocol::address const itself{{127, 0, 0, 1}, process.open(0).rtp_port};
        tell(process, protocol::media_command{.call = 0, .send = linear, .map = {linear}, .rtp_dest = itself});
        process.put_on_line(0, line);
        EXPECT_GE(answer_ms(process), 0);
        ASSERT_TRUE(lines->wait_for_open(1));
        long const before_kb = memory_kb(process);
        stranger attacker(process.port);
        attacker.send(from_hex(poison));
        EXPECT_EQ(answer_ms(process, 300ms), -1);
        EXPECT_TRUE(process.client.wait_for<protocol::heartbeat>(patience));
        for (int sent = 0; sent < 100; sent++, usleep(500))
            attacker.send(full);
        EXPECT_TRUE(lines->hears(line++)) << "itself";
        long const grown_kb = memory_kb(process) - before_kb;
        std::printf("poison %s: commands are lost, media and heartbeats go on, %ld kB more memory\n", poison, grown_kb);
        EXPECT_LT(grown_kb, most_stream_kb);
    }
}

// ---- devices

// Each dead device is tried once in 10 ms.
TEST(device, dead_ones_cost_little) {
    auto const lines = speakers();
    auto line = std::make_unique<fxsline::signal_device>(), signalling = std::make_unique<fxsline::signal_device>();
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
    EXPECT_TRUE(lines->hears(3));
    line.reset();  // hangs up
    signalling.reset();
    tell(process, protocol::playback_command{.call = 0, .tone_set = 1, .kind = 4});
    EXPECT_GE(answer_ms(process), 0);

    double const before_ms = usage(process.process.pid()).cpu_ms;
    auto const begin = steady::now();
    int log_lines = 0;
    while (ms_since(begin) < 2000)
        if (auto const report = process.client.receive(100ms))
            log_lines += std::holds_alternative<protocol::log_line>(*report);
    double const wall_s = ms_since(begin) / 1000.0;
    double const percent = (usage(process.process.pid()).cpu_ms - before_ms) / wall_s / 10;
    std::printf("two dead lines, a dead signalling device: %.1f %% of a processor, %.0f log lines a second\n", percent,
                log_lines / wall_s);
    EXPECT_TRUE(percent > 0 && percent < 15 && log_lines > 0 && log_lines / wall_s < 250);
    EXPECT_TRUE(lines->hears(3));

    std::filesystem::create_symlink(lines->tdm_path() + "0", own_lines + "0");
    tell(process, protocol::tdm_command{.call = 0});
    process.put_on_line(0, 0);
    std::filesystem::remove(own_lines + "0");
    ASSERT_TRUE(lines->wait_for_open(3));
    EXPECT_TRUE(lines->hears(0)) << "the same call on a new device";
}

// ---- floods

class flooded : public testing::Test {
protected:
    flooded() : lines(speakers()), process({"--tdm", lines->tdm_path()}) { process.call_between(*lines); }
    std::uint64_t lost_blocks() {
        return lines->mount().locked(
            [&] { return lines->bank().line(0).counters().overruns + lines->bank().line(1).counters().overruns; });
    }
    /// In a thread, until the owner lets go of it.
    static std::jthread repeat(std::atomic<unsigned>& times, std::function<void()> const& act) {
        return std::jthread([&times, act](std::stop_token const& stop) {
            for (; !stop.stop_requested(); times++)
                act();
        });
    }

    /// In real time, for more than a second: the lines keep 80 ms that the process has not read.
    void measure(char const* what, std::function<void()> const& attack, int most_ms = 1000) {
        std::uint64_t const lost_before = lost_blocks();
        std::atomic<unsigned> ticks = 0, sends = 0;
        int worst_ms = 0, answers = 0;
        {
            auto const clock = repeat(ticks, [&] { lines->mount().advance(), usleep(10000); });
            auto const flood = repeat(sends, attack);
            for (auto const begin = steady::now(); ms_since(begin) < 1200 && worst_ms >= 0; answers++) {
                int const ms = answer_ms(process);
                worst_ms = ms < 0 ? ms : std::max(worst_ms, ms);
                usleep(2000);
            }
            EXPECT_TRUE(process.client.wait_for<protocol::heartbeat>(patience)) << what;
        }
        std::uint64_t const lost = lost_blocks() - lost_before;
        std::printf("%s: %u sends, %d commands answered within %d ms, %d of %u blocks lost\n", what, sends.load(),
                    answers, worst_ms, int(lost), 2 * ticks);
        EXPECT_LE(lost, ticks) << what;
        EXPECT_TRUE(worst_ms >= 0 && worst_ms < most_ms) << what;
        EXPECT_TRUE(lines->hears(0) && lines->hears(1)) << what;
    }

    std::unique_ptr<telephones> lines;
    controlled_process process;
};

TEST_F(flooded, of_one_door_disturbs_no_other_call) {
    protocol::open_reply const target = process.open(2);
    tell(process, protocol::media_command{.call = 2, .send = linear, .map = {linear}});
    stranger rtp(target.rtp_port), control(process.port), first(target.rtcp_port), second(target.rtcp_port);
    rtp_packet packet{.payload_type = 100, .payload = std::string(320, 'a')};
    measure("nothing", [] { usleep(1000); });
    measure("RTP port", [&] { rtp.send((packet.sequence++, packet.build())); });
    std::string const report = from_hex("80C80006 00000007 E0000000 00000000 00000000 00000001 00000001");
    first.send(report);
    measure("RTCP port, a second sender", [&] { second.send(report); });
    // In the next two one socket, the process's or ours, is full most of the time: what it loses is said again.
    constexpr int long_ms = 20000;
    measure(
        "RTCP port, the first sender, copied to us", [&] { first.send(report); }, long_ms);
    std::string const ends = from_hex("00040006000400020000 00040006000400020001");
    measure(
        "control port, a stranger", [&] { control.send(ends); }, long_ms);

    descriptor const listening = listen_tcp(0);
    protocol::address const far{{127, 0, 0, 1}, bound_port(listening.get())};
    tell(process, protocol::media_command{.call = 2, .rtp_dest = far, .tcp = true});
    descriptor const connection(accept(listening.get(), nullptr, nullptr));
    std::string const frame = from_hex("0300") + be16(334) + be16(332) + packet.build();
    measure("TCP connection", [&] { (void)!send(connection.get(), frame.data(), frame.size(), MSG_NOSIGNAL); });
}

// ---- large packets

TEST(memory, eight_channels_under_large_packets_stay_within_bounds) {
    controlled_process process({});
    eight_channels attacked(process);
    long const before_kb = memory_kb(process);
    long grown_kb = 0;
    for (shape const& s : shapes()) {
        attacked.fill(s, [&] { EXPECT_GE(answer_ms(process), 0) << s.what; });
        grown_kb = memory_kb(process) - before_kb;
        std::printf("%s to eight channels: %ld kB more memory\n", s.what.c_str(), grown_kb);
    }
    EXPECT_LT(grown_kb, most_flooded_kb);
}

TEST(memory, a_huge_packet_holds_the_line_up_for_three_seconds_of_audio_only) {
    auto const lines = speakers();
    controlled_process process({"--tdm", lines->tdm_path()});
    stranger far(process.open(0).rtp_port);
    tell(process, protocol::media_command{.call = 0, .send = linear, .map = {linear, g729}});
    process.put_on_line(0, 0);
    ASSERT_TRUE(lines->wait_for_open(1));
    far.send(packet_of({"64 KB G.729", longest, longest - 16, g729}, 100));
    far.send(rtp_packet{.payload_type = 100, .sequence = 101, .payload = std::string(160, '\x11')}.build());
    int ticks = 0, worst_ms = 0;
    auto const& ear = lines->heard(0);
    for (; std::count(ear.begin(), ear.end(), 0x1111) < 80 && ticks < 350; ticks++) {
        auto const begin = steady::now();
        lines->run(1);
        worst_ms = std::max(worst_ms, ms_since(begin));
    }
    std::printf("behind 64 KB of G.729: heard after %d ms of audio, the slowest block took %d ms\n", 10 * ticks,
                worst_ms);
    EXPECT_TRUE(ticks > 250 && ticks < 350 && worst_ms < 1000);
}

}  // namespace
