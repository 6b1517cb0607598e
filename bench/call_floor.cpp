// The least that a process must do for calls of G.711 over line devices: the floor of bench/calls.cpp, which runs this.
//
//     call_floor DEVICE_BASE CALLS
//
// It opens what the media process opens (a line for each of the first four calls, four sockets a call, one for control)
// and makes the system calls of the audio: select on all of them, a read of 10 ms when a line is readable, a write of
// 10 ms when a received block is due, a datagram of 20 ms to its own port after every second block, its reception. No
// audio is coded, mixed or buffered, no time is read, nothing is reported. Runs until it is killed.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr int line_count = 4;
constexpr int block_bytes = 160;
constexpr int datagram_bytes = 172;
constexpr int blocks_per_datagram = 2;
constexpr timeval longest_wait{0, 100000};

struct call {
    int rtp = -1;
    sockaddr_in to{};
    std::vector<int> idle;  ///< RTCP and IPv6: nothing arrives there
    int captured = 0;       ///< blocks for the next datagram
    int due = 0;            ///< received blocks, not yet written
};

int bound_socket(int family) {
    int const fd = socket(family, SOCK_DGRAM, 0);
    sockaddr_storage any{};
    any.ss_family = static_cast<sa_family_t>(family);
    if (bind(fd, reinterpret_cast<sockaddr*>(&any), family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6)) !=
        0) {
        std::perror("call_floor: bind");
        std::exit(EXIT_FAILURE);
    }
    return fd;
}

call opened_call() {
    call one;
    one.rtp = bound_socket(AF_INET);
    socklen_t length = sizeof one.to;
    getsockname(one.rtp, reinterpret_cast<sockaddr*>(&one.to), &length);
    one.to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    one.idle = {bound_socket(AF_INET), bound_socket(AF_INET6), bound_socket(AF_INET6)};
    return one;
}

class floor_process {
public:
    floor_process(std::string const& device_base, int call_count) : control(bound_socket(AF_INET)) {
        for (int i = 0; i < call_count; i++)
            calls.push_back(opened_call());
        for (int i = 0; i < std::min(call_count, line_count); i++) {
            std::string const path = device_base + std::to_string(i);
            lines.push_back(open(path.c_str(), O_RDWR));
            if (lines.back() < 0) {
                std::perror(path.c_str());
                std::exit(EXIT_FAILURE);
            }
        }
    }

    void pass() {
        FD_ZERO(&readable);
        FD_ZERO(&writable);
        want(control);
        for (std::size_t i = 0; i < lines.size(); i++) {
            want(lines[i]);
            if (output_due(i))
                FD_SET(lines[i], &writable);
        }
        for (call const& one : calls) {
            want(one.rtp);
            for (int const fd : one.idle)
                want(fd);
        }
        timeval limit = longest_wait;
        if (select(highest + 1, &readable, &writable, nullptr, &limit) <= 0)
            return;
        for (std::size_t i = 0; i < lines.size(); i++) {
            if (FD_ISSET(lines[i], &readable))
                capture(i);
            if (FD_ISSET(lines[i], &writable))
                play(i);
        }
        for (call& one : calls) {
            if (FD_ISSET(one.rtp, &readable))
                receive(one);
        }
    }

private:
    void want(int fd) {
        FD_SET(fd, &readable);
        highest = std::max(highest, fd);
    }
    /// The calls of a line are `line`, `line` + 4, ...
    template <typename action>
    void for_calls_of(std::size_t line, action const& act) {
        for (std::size_t i = line; i < calls.size(); i += line_count)
            act(calls[i]);
    }
    bool output_due(std::size_t line) {
        bool due = false;
        for_calls_of(line, [&](call const& one) { due |= one.due > 0; });
        return due;
    }
    void capture(std::size_t line) {
        if (read(lines[line], buffer, block_bytes) < 1)
            return;
        for_calls_of(line, [&](call& one) {
            if (++one.captured < blocks_per_datagram)
                return;
            one.captured = 0;
            sendto(one.rtp, buffer, datagram_bytes, 0, reinterpret_cast<sockaddr*>(&one.to), sizeof one.to);
        });
    }
    void play(std::size_t line) {
        for_calls_of(line, [](call& one) { one.due -= one.due > 0; });
        if (write(lines[line], buffer, block_bytes) < 0)
            std::perror("call_floor: write");
    }
    void receive(call& one) {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        if (recvfrom(one.rtp, buffer, sizeof buffer, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &length) > 0)
            one.due += blocks_per_datagram;
    }

    int control;
    std::vector<int> lines;
    std::vector<call> calls;
    fd_set readable{};
    fd_set writable{};
    int highest = -1;
    unsigned char buffer[2048] = {};
};

}  // namespace

int main(int argc, char** argv) {
    int const calls = argc == 3 ? std::atoi(argv[2]) : 0;
    if (calls < 1) {
        std::fprintf(stderr, "usage: call_floor DEVICE_BASE CALLS\n");
        return EXIT_FAILURE;
    }
    floor_process process(argv[1], calls);
    for (;;)
        process.pass();
}
