#include "sim/world.h"

#include "control/call_led.h"
#include "control/commands.h"
#include "control/fxs_pipe.h"
#include "control/main_loop.h"
#include "control/media_process.h"
#include "control/options.h"
#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/timeout.h"
#include "lib/tlv.h"
#include "media/channel.h"
#include "media/ntp.h"

namespace sim {

namespace {

void set_globals(bool use_ipv4, bool use_ipv6) {
    ipv4 = use_ipv4;
    ipv6 = use_ipv6;
    control_adr = ip_port(str(127, 0, 0, 1), call_control.port);
    tdm_device = str("/dev/sdt");
    command_fd = fxs_in_fd = fxs_out_fd = sigchan_fd = -1;
    log_level = -1;
    ntp_timediff = 0;
    timeout_ticket::next_id = 0;
}

}  // namespace

world::world(surroundings& outer, settings const& wanted) : kernel(outer, wanted) {
    set_globals(chosen.use_ipv4, chosen.use_ipv6);
    tunnel_device = str("/sim/signal");
    take_over(this);
    options line;
    line.local_port = control_port.port;
    open_fxs_pipe(str("/sim/pipe"));
    start_media_process(line);
}

/// What only the process's own code can reach is brought back through its doors: a command and a driver's line that
/// came in part are completed.
world::~world() {
    end_faults();
    log_level = -1;
    end_all_calls();
    for (std::size_t n; (n = command_bytes_missing()) > 0;) {
        on_command(str('\0', static_cast<int>(n)), ip_port(str('\0', 4), 1));
        mirror_command(bytes(n, 0));
    }
    if (!owns(fxs_in_fd))
        fxs_in_fd = open("/sim/pipe0");
    driver_text("\n");
    while (wait_readable(fxs_in_fd, 0) > 0)
        process_fxs_input();
    set_led1(0);
    channels.clear();
    devmgrs.clear();
    while (!timeout_queue::global_queue.empty())
        timeout_queue::global_queue.begin()->second->clear();
    for (int const fd : {command_fd, fxs_in_fd, fxs_out_fd, sigchan_fd})
        if (owns(fd))
            close(fd);
    take_over(nullptr);
    set_globals(true, true);
    tunnel_device.clear();
    rtimestamp::ticks10 = 0;
}

void world::run(std::int64_t ns) {
    constexpr int patience = 200000;  // passes
    run_until = time + ns;
    int fruitless = 0;
    while (time < run_until) {
        std::int64_t const before = time;
        main_loop_pass();
        fruitless = time > before ? 0 : fruitless + 1;
        if (fruitless == patience) {
            complain("the main loop lets no time pass");
            time = run_until;
        }
    }
}

void world::command(str const& data) {
    command(std::string_view(reinterpret_cast<char const*>(data.cbuffer()), static_cast<std::size_t>(data.length())));
}

void world::end_all_calls() {
    ip_port const sender = control_adr;
    for (int call = 0; call < channel_count; call++)
        dispatch_command(protocol::cmd_end::tag, cmd_get_tlv_short(protocol::cmd_end::call, call), sender);
}

bool world::idle() const {
    return quiet() && timeout_queue::global_queue.size() == 1;
}

std::uint64_t world::pool_in_use() {
    std::uint64_t used = 0;
    for (str::size_class const& own : str::block_size) {
        int blocks = own.created;
        for (auto const* block = own.free_head; block; block = block->next_free)
            blocks--;
        used += static_cast<std::uint64_t>(own.size) * static_cast<std::uint64_t>(blocks);
    }
    return used;
}

}  // namespace sim
