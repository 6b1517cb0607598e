#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/e2e/media_process.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/signals.h"
#include "tools/fxsline/driver_links.h"

/// What attackers share: sockets, and figures of the process under attack.

using namespace std::chrono_literals;

constexpr auto patience = 20s;
constexpr protocol::codec_choice linear{0, 100}, g729{3, 18};

inline int ms_since(std::chrono::steady_clock::time_point begin) {
    return static_cast<int>((std::chrono::steady_clock::now() - begin) / 1ms);
}

/// A UDP socket of its own that sends to one port of the process.
struct stranger {
    explicit stranger(std::uint16_t port)
        : socket(protocol::control_client::connect_udp("127.0.0.1", port)) {}
    void send(std::string const& bytes) {
        socket.send({reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size()});
    }
    protocol::control_client socket;
};

/// Resident memory.
inline long memory_kb(controlled_process const& of) {
    std::ifstream status("/proc/" + std::to_string(of.process.pid()) + "/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:" && status >> word)
            return std::stol(word);
    return -1;
}

template <class command>
void tell(controlled_process& process, command const& what) {
    process.send(protocol::encode(what));
}

/// Says something else every time; what the process logs of it at level 7 is looked for. The ms until then, -1 for
/// never. Said again every 50 ms, because a flooded socket drops datagrams.
inline int answer_ms(controlled_process& asked, std::chrono::milliseconds limit = patience) {
    static std::uint8_t number = 0;
    protocol::codec_choice const said{++number, static_cast<std::uint8_t>(getpid() % 128)};
    std::string const text =
        "Map codec " + std::to_string(said.codec) + " to " + std::to_string(said.payload_type);
    auto const begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begin < limit) {
        asked.client.kept().clear();
        tell(asked, protocol::log_level_command{.level = 7});
        tell(asked, protocol::media_command{.call = 99, .map = {said}});
        if (asked.client.wait_for<protocol::log_line>(50ms,
                                                      [&](auto const& line) { return line.text == text; }))
            return ms_since(begin);
    }
    return -1;
}

/// Four telephones that speak all the time.
inline std::unique_ptr<telephones> speakers() {
    auto const voice = signals::speech_like(8000, 8000, 31);
    return std::make_unique<telephones>(std::vector(4, fxsline::speech::recording(voice, true, "test")));
}

/// Whether a telephone hears anything in the next second.
inline bool hears(telephones& lines, unsigned line) {
    auto const from = static_cast<std::ptrdiff_t>(lines.heard(line).size());
    lines.run(100);
    return std::any_of(lines.heard(line).begin() + from, lines.heard(line).end(),
                       [](int s) { return s != 0; });
}

/// For the option --tdm: links to line devices of the test's choice begin with it.
inline std::string const own_lines = testing::TempDir() + "fxs-attack-" + std::to_string(getpid());
