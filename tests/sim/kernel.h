#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>

#include <sys/select.h>

#include "tests/sim/world.h"

namespace sim {

/// The simulated kernel: descriptors and what is behind them, events in the order of their time, the clocks. The
/// system calls answer with what the real ones return, or -errno. Internal to this library.
class kernel {
public:
    static constexpr int first_fd = 100, fd_count = 256;

    kernel(surroundings& around, settings const& chosen);

    static bool owns(int fd) { return fd >= first_fd && fd < first_fd + fd_count; }
    /// Whether a path is simulated: the line devices, pipe and signalling device.
    static bool owns(char const* path);

    int open(char const* path);
    int socket(int family, int type);
    int close(int fd);
    int bind(int fd, endpoint const& local, bool loopback);
    int connect(int fd, endpoint const& to);
    long send_to(int fd, endpoint const& to, std::string_view data);
    long receive_from(int fd, void* buffer, std::size_t size, endpoint& from);
    long send(int fd, std::string_view data);
    long receive(int fd, void* buffer, std::size_t size);
    long read(int fd, void* buffer, std::size_t size);
    long write(int fd, std::string_view data);
    int line_request(int fd, unsigned number);
    /// SIOCGSTAMP: time of day of the datagram read last, ns; the first call starts stamping and gives the time.
    int stamp(int fd, std::int64_t& time_of_day_ns);
    endpoint name(int fd);
    int schedule() { return -injected(call::schedule); }
    /// Limit: ns from now, negative for none. The sets hold simulated descriptors only.
    int select(int highest, fd_set* read, fd_set* write, std::int64_t limit);
    int wait_readable(int fd, std::int64_t limit);

    // What world offers.
    surroundings& around;
    settings const chosen;
    random_source random;
    std::uint32_t process_random;  ///< state of rand()
    std::int64_t now = 0;
    std::int64_t day_offset;  ///< time of day less now
    std::int64_t run_until = 0;
    char const* trouble = nullptr;

    std::uint32_t ticks() const { return chosen.clock_start + static_cast<std::uint32_t>(now / (10 * ms)); }
    void complain(char const* what) {
        if (!trouble)
            trouble = what;
    }
    /// Nothing is open but what the process holds all the time.
    bool quiet() const;
    void end_faults() { std::fill(std::begin(faults), std::end(faults), fault{}); }
    void fail(call which, int error, int times) { faults[static_cast<int>(which)] = {error, times}; }
    void at(std::int64_t time, int token);
    void transmit(endpoint const& from, endpoint const& to, std::string_view data);
    void deliver(endpoint const& from, endpoint const& to, std::string_view data, std::int64_t delay);
    void stream_send(int stream, std::string_view data, std::int64_t delay);
    void stream_close(int stream);
    void stream_stall(int stream, bool stalled);
    void say(int line, std::int16_t const* samples, int count);
    void hang_up(int device, bool hung_up) {
        (device == signal_device ? signal_hung_up : lines[device].hung_up) = hung_up;
    }
    void feed(bool pipe, std::string_view data);
    /// Bytes that would complete the command which the process has received in part.
    std::size_t command_bytes_missing() const;
    /// Follows where in the stream of commands the process is: each has a tag and a length of two bytes each.
    void mirror_command(std::string_view data);

private:
    static constexpr std::size_t block_bytes = 2 * block_samples;
    static constexpr std::size_t play_bytes = 3 * block_bytes;  ///< what a driver keeps for the telephone
    static constexpr std::size_t stream_bytes = 65536;

    /// The first bytes, off the queue.
    static std::size_t take(bytes& from, void* to, std::size_t size) {
        std::size_t const n = std::min(size, from.size());
        from.copy(static_cast<char*>(to), n);
        from.erase(0, n);
        return n;
    }

    enum class kind { none, udp, stream, line, pipe_in, pipe_out, signal };
    struct datagram {
        endpoint from;
        bytes data;
        std::int64_t arrived;
    };
    struct descriptor {
        kind what = kind::none;
        endpoint local;         ///< port 0: not bound; address: the device's
        bool loopback = false;  ///< bound to 127.0.0.1
        std::deque<datagram, outside<datagram>> datagrams;
        std::size_t queued = 0;  ///< bytes of them
        bool stamping = false;
        std::int64_t stamp = 0;
        int number = 0;  ///< of the line or stream
        endpoint peer;
        enum { fresh, connecting, connected, refused } state = fresh;
        bool peer_closed = false, stalled = false;
        std::size_t room = 0;            ///< bytes that the process may write before the far end has them
        bytes inbox;                     ///< of streams, pipe and signalling device
        std::int64_t gave_nothing = -1;  ///< in which tick of the process's clock a read did
    };
    struct line_state {
        int opened = 0;
        bool hung_up = false;
        bytes captured, playing;
    };
    struct event {
        enum { token, arrival, stream_open, stream_in, stream_end, stream_room } what;
        int number = 0;
        endpoint from, to;
        bytes data;
    };
    struct fault {
        int error = 0, times = 0;
    };
    using moment = std::pair<std::int64_t, std::uint64_t>;  ///< time, then order of scheduling

    int take_fd(kind what);
    descriptor* get(int fd, kind what);
    descriptor* of_stream(int stream);
    int injected(call which);
    void schedule_event(std::int64_t delay, event&& e);
    void happen(event& e);
    void arrive(event& e);
    void tick_lines();
    bool lines_open() const;
    bool advance(std::int64_t until);
    bool readable(descriptor const& d) const;
    bool writable(descriptor const& d) const;

    descriptor table[fd_count];
    line_state lines[line_count];
    bool signal_hung_up = false;
    fault faults[static_cast<int>(call::count)];
    std::map<moment, event, std::less<moment>, outside<std::pair<moment const, event>>> events;
    std::uint64_t scheduled = 0;
    std::int64_t next_tick = 0;
    int streams = 0;
    int ephemeral_port = 40000;
    bytes command_header;  ///< of the command being received
    std::size_t command_rest = 0;
};

/// The kernel that answers; null outside of a world.
extern constinit kernel* running;
/// Takes the program's system calls (the file that holds them is linked because of this).
void take_over(kernel* answering);

}  // namespace sim
