#include "control/media_process.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "control/options.h"
#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/protocol.h"
#include "lib/random.h"
#include "lib/sockets.h"
#include "lib/timeout.h"
#include "lib/tlv.h"
#include "media/channel.h"
#include "srtp/aes.h"

namespace {

constexpr int heartbeat_s = 1;

void open_control_socket(options const& chosen) {
    command_fd = chosen.debug ? utils::open_udp_socket(chosen.local_port, false)
                              : utils::open_loopback_socket(chosen.local_port);
}

void create_channels() {
    channels.resize(channel_count);
    for (int i = 0; i < channel_count; i++) {
        channels[i].set_id(i);
        channels[i].init();
    }
}

void create_devmgrs() {
    devmgrs.resize(devmgr_count);
    for (int i = 0; i < devmgr_count; i++)
        devmgrs[i].init(i);
}

/// The line devices want their audio every 10 ms, whatever else the machine does. The kernel is asked itself: musl's
/// sched_setscheduler() only ever answers ENOSYS.
void set_realtime_priority() {
    sched_param parameters{};
    parameters.sched_priority = (sched_get_priority_min(SCHED_RR) + sched_get_priority_max(SCHED_RR)) / 2;
    if (syscall(SYS_sched_setscheduler, 0, SCHED_RR, &parameters) != 0)
        log_line(0, "Could not set scheduling priority");
}

}  // namespace

void heartbeat() {
    static timeout next_beat;
    next_beat.callback(rtimestamp::s2ticks(heartbeat_s), callback_argument(heartbeat));
    send_command(cmd_get_tlv_str(protocol::report_heartbeat::tag, str::null));
}

void start_media_process(options const& chosen) {
    init_timestamps();
    utils::seed_rand_from_system();
    open_control_socket(chosen);
    aes_compute_tables();
    create_channels();
    create_devmgrs();
    sigchan_open(tunnel_device);
    if (!chosen.debug)
        set_realtime_priority();
    heartbeat();
    log_line(1, "Media Process Ready");
}
