#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>

#include <sys/select.h>

#include "sim/surroundings.h"

namespace sim {

/// The simulated kernel: descriptors and what is behind them, events in the order of their time, the clocks.
class kernel {
public:
    kernel(surroundings& around, settings const& chosen);
    kernel(kernel const&) = delete;
    kernel& operator=(kernel const&) = delete;

    // ---- time
    /// ns since the start.
    std::int64_t now() const { return time; }
    /// surroundings::wake(token) at this time, or at once when it has passed.
    void at(std::int64_t ns, int token);
    /// The time of day, which nothing else changes but the passing of time; ns since 1970.
    std::int64_t time_of_day() const { return time + day_offset; }
    void set_time_of_day(std::int64_t ns) { day_offset = ns - time; }

    // ---- network
    /// Takes the path from `from` to `to`.
    void transmit(endpoint const& from, endpoint const& to, std::string_view datagram);
    /// Arrives for sure, after delay_ns.
    void deliver(endpoint const& from, endpoint const& to, std::string_view datagram, std::int64_t delay_ns = 0);
    /// Data for the process in one piece; end of the stream; the process's writes are taken (default) or not.
    void stream_send(int stream, std::string_view data, std::int64_t delay_ns = 0);
    void stream_close(int stream);
    void stream_stall(int stream, bool stalled);

    // ---- devices
    /// Blocks of silence or what surroundings::line() says come every 10 ms; this comes in front of them, at once.
    void say(int line, std::int16_t const* samples, int count);
    /// A line or signal_device: readable, but reads give 0 bytes and nothing is heard, until it is undone.
    void hang_up(int device, bool hung_up = true) {
        (device == signal_device ? signal_hung_up : lines[device].hung_up) = hung_up;
    }
    void driver_text(std::string_view text) { feed(kind::pipe_in, text); }
    void signal_bytes(std::string_view data) { feed(kind::signal, data); }

    // ---- faults
    /// The next `times` calls of this kind fail with the error, before they do anything.
    void fail(call which, int error, int times = 1) { faults[static_cast<int>(which)] = {error, times}; }
    void end_faults() { std::fill(std::begin(faults), std::end(faults), fault{}); }

    /// The first thing that the process did and must not do: a call that would block for ever, a closed descriptor
    /// used or closed, a dead device asked again at once, a loop that doesn't let time pass. Null: none.
    char const* trouble() const { return first_trouble; }

    // ---- what the system calls of the process are answered with (calls.cpp): their results, or -errno
    static bool owns(int fd) { return fd >= first_fd && fd < first_fd + fd_count; }
    /// Whether a path is simulated: the line devices, pipe and signalling device.
    static bool owns(char const* path);
    int open(char const* path);
    int socket(int family, int type);
    int close(int fd);
    int bind(int fd, endpoint const& local);
    int connect(int fd, endpoint const& to);
    long send_to(int fd, endpoint const& to, std::string_view data);
    long receive_from(int fd, void* buffer, std::size_t size, endpoint& from);
    long send(int fd, std::string_view data);
    long receive(int fd, void* buffer, std::size_t size);
    long read(int fd, void* buffer, std::size_t size);
    long write(int fd, std::string_view data);
    int line_request(int fd, unsigned number);
    /// SIOCGSTAMP: time of day of the datagram read last, ns; the first call starts stamping and gives the time. Also
    /// what SO_TIMESTAMP begins and comes with the datagram.
    int stamp(int fd, std::int64_t& time_of_day_ns);
    endpoint name(int fd);
    int schedule() { return -injected(call::schedule); }
    /// Limit: ns from now, negative for none. The sets hold simulated descriptors only.
    int select(int highest, fd_set* read, fd_set* write, std::int64_t limit);
    int wait_readable(int fd, std::int64_t limit);
    /// The process-times clock, hundredths of a second.
    std::uint32_t ticks() const { return chosen.clock_start + static_cast<std::uint32_t>(time / (10 * ms)); }

    settings const chosen;
    std::uint32_t process_random;  ///< state of rand()

protected:
    static constexpr int first_fd = 100, fd_count = 256;

    void complain(char const* what) {
        if (!first_trouble)
            first_trouble = what;
    }
    /// Nothing is open but what the process holds all the time.
    bool quiet() const;
    /// Bytes that would complete the command which the process has received in part.
    std::size_t command_bytes_missing() const;
    /// Follows where in the stream of commands the process is: each has a tag and a length of two bytes each, and a
    /// value.
    void mirror_command(std::string_view data);

    std::int64_t time = 0, run_until = 0;

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
        enum { fresh, connecting, connected, refused } state = fresh;
        bool peer_closed = false, stalled = false;
        std::size_t room = 0;         ///< bytes that the process may write before the far end has them
        bytes inbox;                  ///< of streams, pipe and signalling device
        std::uint32_t idle_tick = 0;  ///< of the process's clock, in which reads gave nothing ...
        int idle_reads = 0;           ///< ... so often
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
    void feed(kind device, std::string_view data);
    void schedule_event(std::int64_t delay, event&& e);
    void happen(event& e);
    void arrive(event& e);
    void tick_lines();
    bool lines_open() const;
    bool advance(std::int64_t until);
    bool readable(descriptor const& d) const;
    bool writable(descriptor const& d) const;

    surroundings& around;
    random_source random;
    std::int64_t day_offset;  ///< time of day less time
    char const* first_trouble = nullptr;
    descriptor table[fd_count];
    line_state lines[line_count];
    bool signal_hung_up = false;
    fault faults[static_cast<int>(call::count)];
    std::map<moment, event, std::less<moment>, outside<std::pair<moment const, event>>> events;
    std::uint64_t scheduled = 0;
    std::int64_t next_tick = 0;
    int streams = 0;
    int ephemeral_port = 40000;
    bytes command;  ///< as far as the process has received it
};

/// The kernel that answers; null outside of a world.
extern constinit kernel* running;
/// Takes the program's system calls (the file that holds them is linked because of this).
void take_over(kernel* answering);

}  // namespace sim
