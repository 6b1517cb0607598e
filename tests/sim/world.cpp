#include "tests/sim/world.h"

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
#include "tests/sim/kernel.h"

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

void end_of(int fd, kernel& system) {
    if (kernel::owns(fd))
        system.close(fd);
}

}  // namespace

world::world(surroundings& around, settings const& chosen) : system(new kernel(around, chosen)) {
    set_globals(chosen.use_ipv4, chosen.use_ipv6);
    tunnel_device = str("/sim/signal");
    take_over(system.get());
    options line;
    line.local_port = control_port.port;
    open_fxs_pipe(str("/sim/pipe"));
    start_media_process(line);
}

/// What only the process's own code can reach is brought back through its doors: a command and a driver's line that
/// came in part are completed.
world::~world() {
    system->end_faults();
    log_level = -1;
    end_all_calls();
    for (std::size_t n; (n = system->command_bytes_missing()) > 0;) {
        on_command(str('\0', static_cast<int>(n)), ip_port(str('\0', 4), 1));
        system->mirror_command(bytes(n, 0));
    }
    if (!kernel::owns(fxs_in_fd))
        fxs_in_fd = system->open("/sim/pipe0");
    driver_text("\n");
    while (system->wait_readable(fxs_in_fd, 0) > 0)
        process_fxs_input();
    set_led1(0);
    channels.clear();
    devmgrs.clear();
    while (!timeout_queue::global_queue.empty())
        timeout_queue::global_queue.begin()->second->clear();
    for (int const fd : {command_fd, fxs_in_fd, fxs_out_fd, sigchan_fd})
        end_of(fd, *system);
    take_over(nullptr);
    set_globals(true, true);
    tunnel_device.clear();
    rtimestamp::ticks10 = 0;
}

void world::run(std::int64_t ns) {
    constexpr int patience = 200000;  // passes
    system->run_until = system->now + ns;
    int fruitless = 0;
    while (system->now < system->run_until) {
        std::int64_t const before = system->now;
        main_loop_pass();
        fruitless = system->now > before ? 0 : fruitless + 1;
        if (fruitless == patience) {
            system->complain("the main loop lets no time pass");
            system->now = system->run_until;
        }
    }
}

std::int64_t world::now() const {
    return system->now;
}

void world::at(std::int64_t ns, int token) {
    system->at(ns, token);
}

std::int64_t world::time_of_day() const {
    return system->now + system->day_offset;
}

void world::set_time_of_day(std::int64_t ns) {
    system->day_offset = ns - system->now;
}

void world::command(str const& datagram) {
    command({reinterpret_cast<char const*>(datagram.cbuffer()), static_cast<std::size_t>(datagram.length())});
}

void world::command(std::string_view datagram) {
    system->deliver(call_control, control_port, datagram, 0);
}

void world::end_all_calls() {
    ip_port const sender = control_adr;
    for (int call = 0; call < channel_count; call++)
        dispatch_command(4, cmd_get_tlv_short(4, call), sender);
}

void world::send(endpoint const& from, endpoint const& to, std::string_view datagram) {
    system->transmit(from, to, datagram);
}

void world::deliver(endpoint const& from, endpoint const& to, std::string_view datagram,
                    std::int64_t delay_ns) {
    system->deliver(from, to, datagram, delay_ns);
}

void world::stream_send(int stream, std::string_view data, std::int64_t delay_ns) {
    system->stream_send(stream, data, delay_ns);
}

void world::stream_close(int stream) {
    system->stream_close(stream);
}

void world::stream_stall(int stream, bool stalled) {
    system->stream_stall(stream, stalled);
}

void world::say(int line, std::int16_t const* samples, int count) {
    system->say(line, samples, count);
}

void world::hang_up(int device, bool hung_up) {
    system->hang_up(device, hung_up);
}

void world::driver_text(std::string_view text) {
    system->feed(true, text);
}

void world::signal_bytes(std::string_view bytes_) {
    system->feed(false, bytes_);
}

void world::fail(call which, int error, int times) {
    system->fail(which, error, times);
}

char const* world::trouble() const {
    return system->trouble;
}

bool world::idle() const {
    return system->quiet() && timeout_queue::global_queue.size() == 1;
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

random_source& world::random() {
    return system->random;
}

}  // namespace sim
