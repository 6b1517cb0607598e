#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/e2e/media_process.h"
#include "tests/support/loopback.h"
#include "tests/support/rtp_builder.h"

/// What attackers and the soak share: senders, large packets, and figures of the process under test.

using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

constexpr auto patience = 20s;
constexpr protocol::codec_choice linear{0, 100}, g729{3, 18};

inline int ms_since(steady::time_point begin) {
    return static_cast<int>((steady::now() - begin) / 1ms);
}

/// A UDP socket of its own that sends to one port of the process.
struct stranger {
    explicit stranger(std::uint16_t port) : socket(protocol::control_client::connect_udp("127.0.0.1", port)) {}
    void send(std::string const& bytes) {
        socket.send({reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size()});
    }
    protocol::control_client socket;
};

/// What a process uses, as /proc tells.
struct usage {
    long resident_kb = 0, peak_kb = 0, descriptors = 0;
    double cpu_ms = 0;

    explicit usage(pid_t pid) {
        std::string const proc = "/proc/" + std::to_string(pid);
        std::ifstream status(proc + "/status"), schedule(proc + "/schedstat");
        for (std::string word; status >> word;)
            if (word == "VmRSS:" || word == "VmHWM:")
                status >> (word == "VmRSS:" ? resident_kb : peak_kb);
        schedule >> cpu_ms;
        cpu_ms /= 1e6;
        std::error_code gone;
        descriptors = std::distance(std::filesystem::directory_iterator(proc + "/fd", gone), {});
    }
};

template <class command>
void tell(controlled_process& process, command const& what) {
    process.send(protocol::encode(what));
}

/// Says something else every time; what the process logs of it at level 7 is looked for. The ms until then, -1 for
/// never. Said again every 50 ms, because a flooded socket drops datagrams.
inline int answer_ms(controlled_process& asked, std::chrono::milliseconds limit = patience) {
    static std::uint8_t number = 0;
    protocol::codec_choice const said{++number, static_cast<std::uint8_t>(getpid() % 128)};
    std::string const text = "Map codec " + std::to_string(said.codec) + " to " + std::to_string(said.payload_type);
    for (auto const begin = steady::now(); steady::now() - begin < limit;) {
        asked.client.kept().clear();
        tell(asked, protocol::log_level_command{.level = 7});
        tell(asked, protocol::media_command{.call = 99, .map = {said}});
        if (asked.client.wait_for<protocol::log_line>(50ms, [&](auto const& line) { return line.text == text; }))
            return ms_since(begin);
    }
    return -1;
}

/// For the option --tdm: links to line devices of the test's choice begin with it.
inline std::string const own_lines = testing::TempDir() + "fxs-attack-" + std::to_string(getpid());

/// Packets of so many bytes, of which only the last `payload` are not header.
struct shape {
    std::string what;
    int bytes, payload;
    protocol::codec_choice codec = linear;
    bool marker = false;
};
constexpr int longest = 65507;  // of a UDP datagram

// A channel holds what makes more than 128 KiB of payload or 400 packets, and one packet more; a payload may lie in a
// block of twice its length and 1 KiB. The pool keeps what it once gave out, for each size by itself. So the worst is
// to fill the buffers with one size of block after the other:
//
//     block in KiB       64   32   16    8    4    2    1  1/2  1/4, and 401 nodes of 1/4
//     payload            all  15864  7672  3576  1528  504 and less
//     packets held        3    9   18   37   86  261  401  401  401
//     KiB of a channel  192  288  288  296  344  522  401  201  201
//
// which is 2733 KiB, 21.4 MiB for eight channels. A mebibyte more for call
// control's datagrams, log lines and what a sanitizer keeps.
constexpr long most_flooded_kb = 23 * 1024;
inline std::vector<shape> shapes() {
    std::vector<shape> all{{"64 KB linear", longest, longest - 16},
                           {"64 KB G.729", longest, longest - 16, g729},
                           {"64 KB with the marker", longest, longest - 16, linear, true},
                           {"60 KB of header, 1 byte of audio", 60000, 1}};
    for (int block = 1 << 15; block >= 1 << 8; block /= 2)
        all.push_back({std::to_string(block) + " byte blocks", block - 16, std::max(block / 2 - 516, 4)});
    return all;
}

inline std::string packet_of(shape const& s, int sequence) {
    rtp_packet packet{.payload_type = s.codec.payload_type, .sequence = static_cast<std::uint16_t>(sequence)};
    packet.marker = s.marker;
    packet.extension_words = (s.bytes - 16 - s.payload) / 4;
    std::string bytes = packet.build();
    bytes.resize(static_cast<std::size_t>(s.bytes), 'x');
    return bytes;
}

/// Eight open channels of a process, and a sender for each.
struct eight_channels {
    explicit eight_channels(controlled_process& process) {
        for (std::uint16_t call = 0; call < 8; call++) {
            senders.emplace_back(process.open(call).rtp_port);
            tell(process, protocol::media_command{.call = call, .send = linear, .map = {linear, g729}});
        }
        EXPECT_GE(answer_ms(process), 0);
    }
    /// As many packets as fill a channel, to each; `paced` is called when a socket may be full.
    template <typename action>
    void fill(shape const& s, action const& paced) {
        int const burst = std::clamp(60000 / s.bytes, 1, 40);  // what a socket holds at once
        for (int n = std::min(131072 / s.payload + 3, 410); n > 0; n--, sequence++) {
            std::string const packet = packet_of(s, sequence);
            for (stranger& sender : senders)
                sender.send(packet);
            if (n % burst == 0)
                paced();
        }
    }
    std::vector<stranger> senders;
    int sequence = 40000;
};
