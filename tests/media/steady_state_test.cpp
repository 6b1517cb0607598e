#include <filesystem>

#include "dsp/devmgr.h"
#include "lib/timeout.h"
#include "tests/support/manual_clock.h"
#include "tests/support/media_fixture.h"
#include "tests/support/stepped_lines.h"

namespace {

/// Eight calls, each with another of the eight over real sockets, two on each line, every codec in use. The lines
/// are endless silence, so that nothing but the process itself takes memory.
class steady_state : public media_fixture {
protected:
    steady_state() {
        for (int i = 0; i < channel_count; i++) {
            std::filesystem::remove(telephone.path(i / 2));
            std::filesystem::create_symlink("/dev/zero", telephone.path(i / 2));
            channels[i].open(20000, 60000, 0);
        }
        for (int i = 0; i < channel_count; i++) {
            int const coder = i / 2 * 2 % 7 + i % 2;  // linear and mu-law, A-law and G.729, GSM and G.722, G.726
            ip_port const there(str(127, 0, 0, 1), channels[i ^ 1].get_rtp_port());
            channels[i].set_codec(coder, coder, 7, to_str(from_hex("0001020304050607")), i < 4 ? 20 : 30);
            channels[i].set_ssrc(to_str(be32(0x1000u + static_cast<unsigned>(i))));
            channels[i].set_destination(there, ip_port(there.address, there.port + 1), false);
            channels[i].set_tdm_channel(i / 2);
        }
    }

    /// What the main loop does in 10 ms.
    void run_10ms(int tick) {
        clock.advance(1);
        while (timeout_queue::global_queue.delay(true) == 0)
            timeout_queue::global_queue.next();
        for (int line = 0; line < devmgr_count; line++) {
            devmgrs[line].read_audio();
            if (devmgrs[line].output_available())
                devmgrs[line].write_audio(), written++;
        }
        for (int i = 0; i < channel_count; i++) {
            if (tick % 700 == 0)
                channels[i].send_dtmf(tick / 700 % 12);
            channels[i].process_rtp4();
            channels[i].process_rtcp4();
        }
    }

    manual_clock clock;
    stepped_lines telephone;
    int written = 0;  ///< blocks, to all lines
};

TEST_F(steady_state, a_minute_of_eight_calls_takes_no_memory) {
    int tick = 0;
    for (; tick < 4200; tick++)  // digits have met packets and reports in every phase, twice
        run_10ms(tick);
    peer.datagrams();
    std::uint64_t const allocated = str::allocated_size;
    int const callbacks = callback_objects, timeouts = timeout_queue::global_queue.size();
    EXPECT_EQ(timeouts, channel_count);
    for (; tick < 10200; tick++)
        run_10ms(tick);
    EXPECT_EQ(str::allocated_size, allocated);
    EXPECT_EQ(callback_objects, callbacks);
    EXPECT_EQ(timeout_queue::global_queue.size(), timeouts);
    EXPECT_GT(written, tick * devmgr_count * 9 / 10) << "there was audio to carry";
}

}  // namespace
