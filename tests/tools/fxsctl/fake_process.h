// A stand-in for the media process: a UDP socket and a thread that notes every command and answers as told.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tools/protocol/hex.h"

class fake_process {
public:
    enum class manners {
        usual,   // answers session commands and opens calls (ports 40000 + 2 * index), obeys only its peer
        slow,    // the same, but 30 ms before it looks at a datagram and before it answers a session command
        silent,  // takes everything, answers nothing
    };

    explicit fake_process(manners how = manners::usual, std::uint16_t port = 0);
    ~fake_process();

    std::uint16_t port() const { return port_; }

    // From now on a command with this tag is answered with these bytes (none: with nothing) instead of the usual.
    void answer(std::uint16_t tag, const protocol::bytes& reply);

    // Sends to the peer as it is.
    void report(const protocol::bytes& datagram);

    // Every command obeyed so far but session, in hexadecimal with its header.
    std::vector<std::string> commands();
    bool wait_for_commands(std::size_t count);

    // Local ports that sent session commands.
    std::set<std::uint16_t> peers();

private:
    void serve();
    void take_your_time() const;
    void take(const protocol::bytes& datagram, std::uint16_t from);
    void send_to_peer(const protocol::bytes& datagram);

    manners how_;
    int fd_ = -1;
    std::uint16_t port_ = 0;
    std::uint16_t peer_ = 0;
    bool ending_ = false;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::uint16_t, protocol::bytes> answers_;
    std::vector<std::string> commands_;
    std::set<std::uint16_t> peers_;
    std::thread thread_;
};
