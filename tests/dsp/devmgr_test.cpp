#include "dsp/devmgr.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/channel.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/stepped_lines.h"
#include "tests/support/udp_peer.h"

namespace {

using lines = std::vector<std::string>;

/// Line 2 is tested. Channels 0 to 2 send each block that they are given to a far end of their own.
class line_device : public media_fixture {
protected:
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
    void capture(std::string_view pcm) {
        telephone.say(2, pcm);
        tested.read_audio();
    }
    /// Channels that captured audio goes to, as digits.
    std::string listeners() {
        if (tested.get_fd() < 0)
            return "closed";
        capture(pcm_of(77));
        std::string all;
        for (int i = 0; i < parties; i++)
            if (!sent(i).empty())
                all += static_cast<char>('0' + i);
        return all;
    }
    std::string opened() const { return "6 Open " + telephone.path(2); }

    static constexpr int parties = 3;
    stepped_lines telephone;
    devmgr& tested;
    udp_peer far_end[parties];
};

TEST_F(line_device, places_are_taken_freed_and_passed_on) {
    struct {
        char const* steps;  // +n registers, -n deregisters channel n
        char const* listeners;
        char const* owner;  // whose audio is written at once
    } const table[] = {{"+0", "0", "0"},
                       {"+0 +1", "01", "0"},
                       {"+0 +1 +2", "01", "0"},
                       {"+0 +1 -0", "1", "1"},
                       {"+0 +1 -0 +2", "12", "1"},
                       {"+0 +1 -1", "0", "0"},
                       {"+0 +1 -1 +2", "02", "0"},
                       {"+0 -2", "0", "0"},
                       {"+0 +1 -0 -1", "closed", ""},
                       {"+0 +1 +2 -2 -0 -1", "closed", ""},
                       {"-0", "closed", ""}};
    for (auto const& [steps, expected_listeners, owner] : table) {
        tested.close();
        tested.clear();
        std::istringstream all(steps);
        for (std::string step; all >> step;)
            if (step[0] == '+')
                tested.register_channel(step[1] - '0');
            else
                tested.deregister_channel(step[1] - '0');
        EXPECT_EQ(listeners(), expected_listeners) << steps;
        for (char const* c = owner; *c != 0; c++) {
            channels[*c - '0'].add_playback(to_str(pcm_of(5)));
            tested.write_audio();
            EXPECT_TRUE(telephone.heard(2) == pcm_of(5)) << steps;
        }
    }
}

TEST_F(line_device, opens_once_and_closes_with_the_last_channel) {
    channels[0].set_tdm_channel(2);
    EXPECT_EQ(peer.transcript(), lines{opened()});
    channels[1].set_tdm_channel(2);
    channels[2].set_tdm_channel(2);
    EXPECT_EQ(peer.transcript(), lines{}) << "it is open";
    EXPECT_EQ(devmgrs[0].get_fd(), -1);
    channels[2].set_tdm_channel(0);
    EXPECT_EQ(peer.transcript(), lines{"6 Open " + telephone.path(0)});
    channels[0].set_tdm_channel(4);
    channels[0].set_tdm_channel(-1);
    EXPECT_EQ(peer.transcript(), lines{});
    channels[1].init();
    EXPECT_EQ(peer.transcript(), lines{"6 Close " + telephone.path(2)});
    EXPECT_EQ(tested.get_fd(), -1);
}

TEST_F(line_device, a_device_that_does_not_open_is_tried_again) {
    std::filesystem::rename(telephone.path(2), telephone.path(9));
    tested.register_channel(0);
    tested.register_channel(1);
    tested.register_channel(2);
    EXPECT_EQ(tested.get_fd(), -1);
    EXPECT_EQ(peer.transcript(), (lines{opened(), opened(), opened()}));
    channels[0].add_playback(to_str(pcm_of(5)));
    tested.read_audio();
    tested.write_audio();
    tested.tx_clear();
    EXPECT_EQ(peer.reports().size(), 1u) << "the audio is used up, without a device";
    std::filesystem::rename(telephone.path(9), telephone.path(2));
    tested.register_channel(2);
    EXPECT_GE(tested.get_fd(), 0);
}

TEST_F(line_device, every_read_gives_one_block_whatever_it_returned) {
    tested.register_channel(0);
    capture(pcm_of(1) + pcm_of(2, 20));
    tested.read_audio();
    EXPECT_EQ(sent(0), (lines{pcm_of(1), pcm_of(2, 20) + pcm_of(1, 60)}))
        << "a short read leaves old samples";
    capture(pcm_of(3).substr(0, 1));
    EXPECT_EQ(sent(0), (lines{pcm_of(3, 1).substr(0, 1) + pcm_of(2, 20).substr(1) + pcm_of(1, 60)}));
}

TEST_F(line_device, a_new_destination_drops_the_capture_backlog) {
    channels[0].set_tdm_channel(2);
    std::string backlog;
    for (int i = 1; i <= 10; i++)
        backlog += pcm_of(i);
    telephone.say(2, backlog);
    channels[0].set_destination(far_end[0].address(), ip_port(), false);
    tested.read_audio();
    tested.read_audio();
    tested.read_audio();
    EXPECT_EQ(sent(0), (lines{pcm_of(1), pcm_of(9), pcm_of(10)}));
}

TEST_F(line_device, a_read_that_returns_nothing_is_logged) {
    std::filesystem::remove(telephone.path(2));
    std::filesystem::create_symlink("/dev/null", telephone.path(2));
    tested.register_channel(0);
    peer.transcript();
    tested.read_audio();
    EXPECT_EQ(peer.transcript(), lines{"7 TDM read returned 0"});
    EXPECT_EQ(sent(0), lines{});
}

TEST_F(line_device, the_transmit_queue_is_cleared_before_the_first_write_ever) {
    tested.register_channel(0);
    for (int call = 0; call < 2; call++) {
        peer.transcript();
        channels[0].add_playback(to_str(pcm_of(1, 160)));
        tested.write_audio();
        tested.write_audio();
        EXPECT_EQ(peer.log_lines(), call == 0 ? lines{"7 Clear Tx"} : lines{});
        EXPECT_TRUE(telephone.heard(2) == pcm_of(1, 160));
        tested.deregister_channel(0);
        tested.register_channel(0);
    }
    tested.tx_clear();
    EXPECT_EQ(peer.log_lines().back(), "7 Clear Tx");
}

TEST_F(line_device, output_is_available_when_either_channel_has_some) {
    EXPECT_FALSE(tested.output_available());
    channels[0].add_playback(to_str(pcm_of(1)));
    channels[1].add_playback(to_str(pcm_of(1)));
    EXPECT_FALSE(tested.output_available());
    for (int const i : {0, 1, 2})
        tested.register_channel(i);
    EXPECT_TRUE(tested.output_available());
    channels[0].get_samples();
    EXPECT_TRUE(tested.output_available());
    channels[1].get_samples();
    EXPECT_FALSE(tested.output_available());
    channels[2].add_playback(to_str(pcm_of(1)));
    EXPECT_FALSE(tested.output_available()) << "a third channel has no place";
}

// ---- mixing

TEST(mixing, sums_are_saturated_as_far_as_the_shorter_one_reaches) {
    struct {
        int a, a_samples, b, b_samples;
        int sum;  // of the mixed part
    } const table[] = {{1000, 80, -300, 80, 700},
                       {0x7000, 80, 0x2000, 80, 32767},
                       {-0x7000, 80, -0x2000, 80, -32768},
                       {32767, 80, 1, 80, 32767},
                       {-32768, 80, -1, 80, -32768},
                       {32767, 80, -32768, 80, -1},
                       {5, 80, 6, 40, 11},
                       {5, 80, 6, 200, 11},
                       {5, 80, 6, 0, 0},
                       {5, 0, 6, 80, 0}};
    for (auto const& [a, a_samples, b, b_samples, sum] : table) {
        str queue = to_str(pcm_of(b, b_samples));
        str const pcm = to_str(pcm_of(a, a_samples));
        int const mixed = std::min(a_samples, b_samples);
        EXPECT_TRUE(to_string(devmgr::mix_audio(pcm, queue)) ==
                    pcm_of(sum, mixed) + pcm_of(a, a_samples - mixed))
            << a << "+" << b;
        EXPECT_TRUE(to_string(queue) == pcm_of(b, b_samples - mixed)) << a << "+" << b;
        EXPECT_TRUE(to_string(pcm) == pcm_of(a, a_samples)) << "the block that came in may be shared";
    }
    str odd("abc");
    EXPECT_EQ(to_string(devmgr::mix_audio(str::null, odd)), "");
    EXPECT_EQ(to_string(odd), "abc");
}

TEST_F(line_device, a_conference_queue_holds_three_blocks_and_then_starts_anew) {
    constexpr int held[] = {0, 1, 2, 3, 1, 2, 3, 1};
    for (int queued = 0; queued < 8; queued++) {
        tested.close();
        tested.clear();
        tested.register_channel(0);
        tested.register_channel(1);
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
        sent(1);
        for (int i = 1; i <= queued; i++)
            tested.send_device(0, to_str(pcm_of(i)));
        tested.recv_device(to_str(pcm_of(0, 5 * 80)));
        lines expected_at_1;
        for (int i = 0; i < 5; i++)
            expected_at_1.push_back(pcm_of(i < held[queued] ? queued - held[queued] + 1 + i : 0));
        EXPECT_TRUE(sent(1) == expected_at_1) << queued;
        sent(0);
        telephone.heard(2);
    }
}

TEST_F(line_device, three_parties_hear_each_other) {
    constexpr int line_says = 100, first_says = 2000, second_says = 28500, blocks = 20;
    channels[0].set_tdm_channel(2);
    channels[1].set_tdm_channel(2);
    int const party[] = {first_says, second_says};
    for (int n = 0; n < blocks; n++) {
        capture(pcm_of(line_says + n));
        for (int i = 0; i < 2; i++)
            channels[i].add_playback(to_str(pcm_of(party[i] + 200 * n)));
        ASSERT_TRUE(tested.output_available());
        tested.write_audio();
        // Each party hears the line now and the other party of one block ago.
        int const first_before = n > 0 ? first_says + 200 * (n - 1) : 0;
        int const second_before = n > 0 ? second_says + 200 * (n - 1) : 0;
        auto const sum = [](int a, int b) { return pcm_of(std::min(a + b, 32767)); };
        EXPECT_TRUE(sent(0) == lines{sum(line_says + n, second_before)}) << n;
        EXPECT_TRUE(sent(1) == lines{sum(line_says + n, first_before)}) << n;
        EXPECT_TRUE(telephone.heard(2) == sum(first_says + 200 * n, second_before)) << n;
    }
    channels[0].reset_tdm_channel();
    channels[1].add_playback(to_str(pcm_of(7)));
    tested.write_audio();
    telephone.heard(2);
    capture(pcm_of(8));
    EXPECT_EQ(sent(0), lines{});
    EXPECT_EQ(sent(1).size(), 1u);
}

}  // namespace
