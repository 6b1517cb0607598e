#include "tests/e2e/media_process.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <span>

#include "tests/support/signals.h"

using namespace std::chrono_literals;

namespace {

constexpr auto patience = 20s;
constexpr std::uint16_t session_log_level = 5;  // of the line that says that a session was started

protocol::address loopback(std::uint16_t port) {
    return {{127, 0, 0, 1}, port};
}

}  // namespace

bool const own_network = [] {
    ifreq loopback{.ifr_ifrn = {"lo"}};
    loopback.ifr_flags = IFF_UP;
    return unshare(CLONE_NEWNET) == 0 && ioctl(socket(AF_INET, SOCK_DGRAM, 0), SIOCSIFFLAGS, &loopback) == 0;
}();

std::uint16_t free_port() {
    return protocol::control_client::connect_udp("127.0.0.1", 9).local_port();
}

telephones::telephones(std::vector<fxsline::speech> says) : ears(4) {
    fxsline::bank_config config;
    config.base_answers[3] = 42;
    for (std::size_t i = 0; i < says.size(); i++)
        config.lines[i].says = says[i];
    lines = std::make_unique<fxsline::line_bank>(
        config, [this](fxsline::line_event const& event) { driver_events.push_back(event); });
    for (unsigned i = 0; i < 4; i++)
        lines->line(i).tap_heard(
            [this, i](fxsline::block const& block) { ears[i].insert(ears[i].end(), block.begin(), block.end()); });
    files = std::make_unique<fxsline::line_mount>(*lines);
    if (files->open({.mountpoint = directory.path()}) != fxsline::mount_error::none)
        throw std::runtime_error(files->error());
    files->start();
}

telephones::~telephones() {
    files->stop();
}

void telephones::run(int ticks) {
    for (int i = 0; i < ticks; i++) {
        files->advance();
        ASSERT_TRUE(files->settle()) << "the process does not serve its lines";
    }
}

bool telephones::hears(unsigned line) {
    std::size_t const from = ears[line].size();
    run(100);
    return std::ranges::any_of(std::span(ears[line]).subspan(from), [](int sample) { return sample != 0; });
}

bool telephones::wait_for_open(unsigned devices) {
    return files->wait_until([&] {
        unsigned open = 0;
        for (unsigned i = 0; i < lines->lines(); i++)
            open += lines->line(i).is_open();
        return open == devices;
    });
}

std::unique_ptr<telephones> speakers(unsigned seed, int peak, int seconds) {
    std::vector<fxsline::speech> says;
    for (unsigned line = 0; line < 4; line++)
        says.push_back(
            fxsline::speech::recording(signals::speech_like(8000 * seconds, peak, seed + line), true, "voice"));
    return std::make_unique<telephones>(std::move(says));
}

std::string media_process::path() {
    char const* const chosen = std::getenv("FXSMEDIA_PROCESS");
    return chosen != nullptr ? chosen : FXSMEDIA_BINARY;
}

media_process::media_process(std::vector<std::string> arguments)
    : run((arguments.insert(arguments.begin(), path()), arguments)) {}

media_process::~media_process() {
    EXPECT_TRUE(ends || alive()) << "the process ended: " << error_output();
}

int media_process::wait() {
    ends = true;
    return run.wait();
}

std::string media_process::error_output() {
    run.read_output();
    return run.err;
}

namespace {

std::vector<std::string> with_control_port(std::vector<std::string> arguments, std::uint16_t port) {
    arguments.insert(arguments.end(), {"--debug", "--log", "1", "--port", std::to_string(port)});
    return arguments;
}

}  // namespace

controlled_process::controlled_process(std::vector<std::string> arguments)
    : port(free_port()),
      process(with_control_port(std::move(arguments), port)),
      client(protocol::control_client::connect_udp("127.0.0.1", port)) {
    if (!client.start_session(patience))
        throw std::runtime_error("the process does not answer: " + process.error_output());
    send(protocol::encode(protocol::log_level_command{.level = session_log_level}));
}

void controlled_process::expect_sent(bool sent) {
    EXPECT_TRUE(sent);
}

protocol::open_reply controlled_process::open(std::uint16_t call) {
    send(protocol::encode(protocol::open_command{.call = call, .call_id = "call-" + std::to_string(call)}));
    auto const reply =
        client.wait_for<protocol::open_reply>(patience, [&](protocol::open_reply const& r) { return r.call == call; });
    EXPECT_TRUE(reply.has_value());
    return reply.value_or(protocol::open_reply{});
}

void controlled_process::connect(std::uint16_t a, std::uint16_t b, protocol::codec_choice codec,
                                 protocol::media_command extra) {
    protocol::open_reply const at_a = open(a);
    protocol::open_reply const at_b = open(b);
    extra.send = codec;
    extra.map.push_back(codec);
    for (auto const& [call, peer] : {std::pair{a, at_b}, std::pair{b, at_a}}) {
        extra.call = call;
        extra.rtp_dest = loopback(peer.rtp_port);
        extra.rtcp_dest = loopback(peer.rtcp_port);
        send(protocol::encode(extra));
    }
}

void controlled_process::put_on_line(std::uint16_t call, std::uint16_t line) {
    send(protocol::encode(protocol::tdm_command{.call = call, .slot = line}));
    settle();
}

void controlled_process::call_between(telephones& lines) {
    connect(0, 1, {0, 100});
    put_on_line(0, 0);
    put_on_line(1, 1);
    EXPECT_TRUE(lines.wait_for_open(2));
}

void controlled_process::settle() {
    send(protocol::encode(protocol::session_command{}));
    auto const carried_out = client.wait_for<protocol::log_line>(
        patience, [](protocol::log_line const& line) { return line.text.starts_with("Start session"); });
    ASSERT_TRUE(carried_out.has_value());
}
