#include "bench/call_setup.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

using namespace std::chrono_literals;

namespace {

constexpr auto patience = 20s;
constexpr std::uint16_t line_count = 4;
constexpr protocol::codec_choice mu_law{1, 0};

[[noreturn]] void fail(std::string const& why) {
    std::fprintf(stderr, "calls: %s\n", why.c_str());
    std::exit(EXIT_FAILURE);
}

std::string temporary_directory() {
    std::string name = "/tmp/fxsmedia-bench-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        fail("no temporary directory");
    return name;
}

std::uint16_t free_port() {
    int const fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), length);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

fxsline::bank_config speaking() {
    fxsline::bank_config config;
    for (fxsline::line_config& line : config.lines)
        line.says = fxsline::speech::tone({440, 554}, -15);
    return config;
}

}  // namespace

telephones::telephones() : directory(temporary_directory()), bank(speaking()) {
    if (mount.open({.mountpoint = directory, .stepped = false}) != fxsline::mount_error::none)
        fail(mount.error());
    mount.start(&clock);
}

telephones::~telephones() {
    mount.stop();
    rmdir(directory.c_str());
}

telephones::traffic telephones::blocks() {
    return mount.locked([this] {
        traffic sum{};
        for (unsigned i = 0; i < bank.lines(); i++) {
            sum.read += bank.line(i).counters().samples_read / fxsline::block_samples;
            sum.written += bank.line(i).counters().samples_written / fxsline::block_samples;
        }
        return sum;
    });
}

media_process::media_process(std::vector<std::string> command, std::string const& device_base) {
    std::uint16_t const port = free_port();
    std::string const program = command.back();
    command.insert(command.end(), {"--debug", "--log", "1", "--tdm", device_base, "--port", std::to_string(port)});
    process = std::make_unique<child_process>(command);
    client = protocol::control_client::connect_udp("127.0.0.1", port);
    if (!client.start_session(patience))
        fail(program + " does not answer");
}

void media_process::set_up_call(std::uint16_t call, bool secure) {
    client.send(protocol::encode(protocol::open_command{.call = call}));
    auto const opened = client.wait_for<protocol::open_reply>(
        patience, [&](protocol::open_reply const& reply) { return reply.call == call; });
    if (!opened || opened->rtp_port == 0)
        fail("call " + std::to_string(call) + " cannot be opened");
    protocol::media_command media{.call = call, .send = mu_law, .map = {mu_law}, .ptime_ms = 20};
    media.rtp_dest = protocol::address{{127, 0, 0, 1}, opened->rtp_port};
    media.rtcp_dest = protocol::address{{127, 0, 0, 1}, opened->rtcp_port};
    if (secure) {
        protocol::bytes const key(30, static_cast<std::uint8_t>(0x50 + call));
        media.srtp_rx_key = media.srtp_tx_key = key;
        media.srtp_tag_bytes = 10;
    }
    client.send(protocol::encode(media));
    client.send(
        protocol::encode(protocol::tdm_command{.call = call, .slot = static_cast<std::uint16_t>(call % line_count)}));
}
