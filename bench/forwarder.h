#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/call_setup.h"
#include "bench/process_usage.h"

/// A peer for bench/calls.cpp: Osmocom's media gateway (Debian package osmo-mgw), which forwards RTP and decodes
/// nothing. Each of its streams comes in at one connection of an endpoint and leaves at the other, 50 packets of G.711
/// mu-law a second, as a call's do; this object is what sends and receives them.
class forwarder {
public:
    /// Starts the command, the program last, and sets up so many streams. Ends this program when that fails.
    forwarder(std::vector<std::string> command, int streams);
    ~forwarder();
    forwarder(forwarder const&) = delete;
    forwarder& operator=(forwarder const&) = delete;

    /// Blocks of 10 ms that it was given and that came back, all streams together.
    telephones::traffic blocks() const;
    child_process const& usage() const { return *process; }

private:
    struct stream {
        int in = -1;   ///< connected to the connection that takes its packets
        int out = -1;  ///< where they arrive
    };

    stream opened_stream(int control, int number) const;
    void run();
    void send_and_receive();

    std::string configuration;  ///< path
    std::unique_ptr<child_process> process;
    std::vector<stream> streams;
    std::uint16_t sequence = 0;
    std::atomic<unsigned long> sent{0};
    std::atomic<unsigned long> received{0};
    std::atomic<bool> ending{false};
    std::thread pace;
};
