#include "dsp/devmgr.h"

#include <sstream>

#include "tests/support/media_fixture.h"
#include "tests/support/seed.h"
#include "tests/support/stepped_lines.h"

namespace {

str bytes_of(std::vector<std::int16_t> const& pcm) {
    return str(reinterpret_cast<unsigned char const*>(pcm.data()), static_cast<int>(2 * pcm.size()));
}

/// Line 2 is tested. Channels 0 to 2 send each block that they are given to a far end of their own.
struct line_device : media_fixture {
    line_device() : media_fixture(7), tested(devmgrs[2]) {
        for (int i = 0; i < parties; i++) {
            channels[i].open(20000, 60000, 0);
            channels[i].set_codec(0, 11, -1, str::null, 10);
            channels[i].set_destination(far_end[i].address(), ip_port(), false);
        }
        peer.transcript();
    }
    /// What the far end of that channel has heard, block by block.
    lines sent(int channel) {
        lines blocks;
        for (std::string const& datagram : far_end[channel].received(channels[channel].get_fd_rtp4()))
            blocks.push_back(rtp_packet::parse(datagram).payload);
        return blocks;
    }
    /// Registers (+n) and deregisters (-n) channels on a line where none was.
    void register_as(std::string const& steps) {
        tested.close();
        tested.clear();
        std::istringstream all(steps);
        for (std::string step; all >> step;)
            step[0] == '+' ? tested.register_channel(step[1] - '0') : tested.deregister_channel(step[1] - '0');
    }
    /// Channels that captured audio goes to, as digits.
    std::string listeners() {
        if (tested.get_fd() < 0)
            return "closed";
        telephone.say(2, pcm_of(77));
        tested.read_audio();
        std::string all;
        for (int i = 0; i < parties; i++)
            if (!sent(i).empty())
                all += static_cast<char>('0' + i);
        return all;
    }

    static constexpr int parties = 3;
    stepped_lines telephone;
    devmgr& tested;
    udp_peer far_end[parties];
};

TEST_F(line_device, places_are_taken_freed_and_passed_on) {
    struct {
        char const* steps;
        char const* listeners;
        char const* owner;  // whose audio is written at once
    } const table[] = {{"+0 +1", "01", "0"},       {"+0 +1 +2", "01", "0"},       {"+0 +1 -0 +2", "12", "1"},
                       {"+0 +1 -1 +2", "02", "0"}, {"+0 +1 -0 -1", "closed", ""}, {"+0 +1 +2 -2 -0 -1", "closed", ""},
                       {"-0", "closed", ""}};
    for (auto const& [steps, expected_listeners, owner] : table) {
        register_as(steps);
        EXPECT_EQ(listeners(), expected_listeners) << steps;
        if (*owner != 0) {
            channels[*owner - '0'].add_playback(to_str(pcm_of(5)));
            tested.write_audio();
            EXPECT_TRUE(telephone.heard(2) == pcm_of(5)) << steps;
        }
    }
}

TEST_F(line_device, a_new_destination_drops_the_capture_backlog) {
    channels[0].set_tdm_channel(2);
    std::string backlog;
    for (int i = 1; i <= 10; i++)
        backlog += pcm_of(i);
    telephone.say(2, backlog);
    channels[0].set_destination(far_end[0].address(), ip_port(), false);
    for (int i = 0; i < 3; i++)
        tested.read_audio();
    EXPECT_EQ(sent(0), (lines{pcm_of(1), pcm_of(9), pcm_of(10)}));
}

/// Whatever a read brings makes one block of 10 ms; what it does not reach is left from the blocks before.
TEST_F(line_device, short_reads_and_failing_devices) {
    channels[0].set_tdm_channel(2);
    std::string block = pcm_of(1);
    for (std::size_t const bytes : {160u, 158u, 80u, 1u}) {
        std::string const said = pcm_of(0x0101 * static_cast<int>(bytes % 100)).substr(0, bytes);
        telephone.say(2, said);
        tested.read_audio();
        EXPECT_EQ(sent(0), lines{block.replace(0, bytes, said)}) << bytes;
    }
    // Of devices that fail, what they are asked for is lost.
    std::pair<char const*, lines> const table[] = {{"/dev/full", {"7 Clear Tx"}},
                                                   {"/dev/null", {"7 TDM read returned 0", "7 Clear Tx"}},
                                                   {"/proc/self/mem", {"7 TDM read returned -1", "7 Clear Tx"}},
                                                   {"/", {}}};
    for (auto const& [device, logged] : table) {
        devmgrs.resize(devmgr_count);  // as at the start
        devmgrs[2].init(2);
        std::filesystem::remove(telephone.path(2));
        std::filesystem::create_symlink(device, telephone.path(2));
        channels[0].set_tdm_channel(2);
        peer.log_lines();
        devmgrs[2].read_audio();
        channels[0].add_playback(to_str(pcm_of(5)));
        devmgrs[2].write_audio();
        EXPECT_EQ(peer.log_lines(), logged) << device;
        channels[0].set_tdm_channel(4);
    }
}

TEST(mixing, sums_are_saturated_as_far_as_the_shorter_one_reaches) {
    seed_range{1, 300}.roll([](dice& random) {
        std::vector<std::int16_t> samples[2];
        for (auto& of : samples)
            for (int n = random.chance(50) ? 80 : random.below(200), loud = random.below(2); n > 0; n--)
                of.push_back(static_cast<std::int16_t>(random.between(-32768, 32767) / (loud ? 1 : 3)));
        auto const& [a, b] = samples;
        int const offset = random.below(2) * random.below(5);  // sub-strings begin anywhere
        str const pcm = str('x', offset) + bytes_of(a);
        str queue = (str('x', offset) + bytes_of(b)).substr(offset);
        std::vector<std::int16_t> expected = a;
        std::size_t const mixed = std::min(a.size(), b.size());
        for (std::size_t i = 0; i < mixed; i++)
            expected[i] = static_cast<std::int16_t>(std::clamp(a[i] + b[i], -32768, 32767));
        EXPECT_TRUE(devmgr::mix_audio(pcm.substr(offset), queue) == bytes_of(expected));
        EXPECT_TRUE(queue == bytes_of({b.begin() + static_cast<std::ptrdiff_t>(mixed), b.end()}));
        EXPECT_TRUE(pcm.substr(offset) == bytes_of(a)) << "the block that came in may be shared";
    });
}

TEST_F(line_device, a_conference_queue_holds_three_blocks_and_then_starts_anew) {
    constexpr int held[] = {0, 1, 2, 3, 1, 2, 3, 1};
    for (int queued = 0; queued < 8; queued++) {
        register_as("+0 +1");
        for (int i = 1; i <= queued; i++)
            tested.send_device(1, to_str(pcm_of(i)));
        // On the line, and in what channel 0 sends.
        std::string expected;
        lines expected_at_0;
        for (int i = 0; i < 5; i++) {
            expected_at_0.push_back(pcm_of(i < held[queued] ? 1000 + queued - held[queued] + 1 + i : 1000));
            expected += expected_at_0.back();
            tested.send_device(0, to_str(pcm_of(1000)));
            tested.recv_device(to_str(pcm_of(1000)));
        }
        EXPECT_TRUE(telephone.heard(2) == expected) << queued;
        EXPECT_TRUE(sent(0) == expected_at_0) << queued;
    }
}

}  // namespace
