#include "dsp/devmgr.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/channel.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/stepped_lines.h"
#include "tests/support/udp_peer.h"

namespace {

using lines = std::vector<std::string>;

struct line_limits : media_fixture {
    line_limits() : media_fixture(7) {}
};

/// Whatever a read brings makes one block of 10 ms; what it does not reach is left from the blocks before.
TEST_F(line_limits, short_reads_and_failing_writes) {
    stepped_lines telephone;
    udp_peer far_end;
    channels[0].open(20000, 60000, 0);
    channels[0].set_codec(0, 11, -1, str::null, 10);
    channels[0].set_destination(far_end.address(), ip_port(), false);
    channels[0].set_tdm_channel(1);
    std::string block = pcm_of(1);
    for (std::size_t const bytes : {160u, 158u, 80u, 1u}) {
        std::string const said = pcm_of(0x0101 * static_cast<int>(bytes % 100)).substr(0, bytes);
        telephone.say(1, said);
        devmgrs[1].read_audio();
        block.replace(0, bytes, said);
        lines const sent = far_end.received(channels[0].get_fd_rtp4());
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(rtp_packet::parse(sent[0]).payload, block) << bytes;
    }
    // Devices that fail: what they are asked for is lost.
    struct {
        char const* device;
        lines logged;
    } const table[] = {{"/dev/full", {"7 Clear Tx"}},
                       {"/dev/null", {"7 TDM read returned 0", "7 Clear Tx"}},
                       {"/proc/self/mem", {"7 TDM read returned -1", "7 Clear Tx"}},
                       {"/", {}}};
    for (auto const& [device, logged] : table) {
        devmgrs.resize(devmgr_count);  // as at the start
        devmgrs[1].init(1);
        std::filesystem::remove(telephone.path(1));
        std::filesystem::create_symlink(device, telephone.path(1));
        channels[0].set_tdm_channel(1);
        channels[0].add_playback(to_str(pcm_of(5)));
        peer.log_lines();
        devmgrs[1].read_audio();
        devmgrs[1].write_audio();
        EXPECT_EQ(peer.log_lines(), logged) << device;
        channels[0].set_tdm_channel(4);
    }
}

}  // namespace
