#include "bench/forwarder.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "lib/wire.h"

namespace {

using namespace std::chrono;

constexpr int payload_bytes = 160;
constexpr int header_bytes = 12;
constexpr unsigned char version_2 = 0x80;
constexpr int packet_ms = 20;
constexpr unsigned blocks_per_packet = 2;
constexpr int attempts = 100;  // of a fifth of a second each: an emulator takes its time to start

[[noreturn]] void fail(std::string const& why) {
    std::fprintf(stderr, "calls: osmo-mgw: %s\n", why.c_str());
    std::exit(EXIT_FAILURE);
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int bound_socket() {
    int const fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in const any = loopback(0);
    if (bind(fd, reinterpret_cast<sockaddr const*>(&any), sizeof any) != 0)
        fail("no socket");
    timeval const limit{0, 200000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return fd;
}

int port_of(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

void connect_to(int fd, int port) {
    sockaddr_in const there = loopback(port);
    connect(fd, reinterpret_cast<sockaddr const*>(&there), sizeof there);
}

int free_port() {
    int const fd = bound_socket();
    int const port = port_of(fd);
    close(fd);
    return port;
}

std::string written_configuration(int control_port) {
    std::string name = "/tmp/fxsmedia-mgw-XXXXXX";
    close(mkstemp(name.data()));
    std::ofstream(name) << "log stderr\n logging level set-all error\n"
                        << "line vty\n bind 127.0.0.1 " << free_port() << "\n"
                        << "mgcp\n bind ip 127.0.0.1\n bind port " << control_port << "\n"
                        << " rtp port-range 40000 49999\n rtp bind-ip 127.0.0.1\n number endpoints 16\n domain mgw\n";
    return name;
}

/// The answer to an MGCP command (RFC 3435) with that transaction; the command is sent again until it comes.
std::string answer_to(int control, std::string const& command, int transaction) {
    char text[2048];
    for (int i = 0; i < attempts; i++) {
        send(control, command.data(), command.size(), 0);
        for (ssize_t n; (n = recv(control, text, sizeof text, 0)) > 0;) {
            std::string const answer(text, static_cast<std::size_t>(n));
            if (answer.find(" " + std::to_string(transaction) + " ") == 3)
                return answer;
        }
        usleep(10000);
    }
    fail("does not answer");
}

/// The port of a new connection that sends to `port`.
int create_connection(int control, int transaction, int endpoint, int port) {
    std::string const command = "CRCX " + std::to_string(transaction) + " rtpbridge/" + std::to_string(endpoint) +
                                "@mgw MGCP 1.0\r\nC: " + std::to_string(endpoint) +
                                "\r\nL: p:20, a:PCMU\r\nM: sendrecv\r\n\r\n"
                                "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio " +
                                std::to_string(port) + " RTP/AVP 0\r\na=ptime:20\r\n";
    std::string const answer = answer_to(control, command, transaction);
    std::size_t const media = answer.find("m=audio ");
    if (!answer.starts_with("200") || media == std::string::npos)
        fail(answer);
    return std::atoi(answer.c_str() + media + 8);
}

}  // namespace

forwarder::forwarder(std::vector<std::string> command, int count) {
    int const control_port = free_port();
    configuration = written_configuration(control_port);
    command.insert(command.end(), {"-c", configuration});
    process = std::make_unique<child_process>(command);
    int const control = bound_socket();
    connect_to(control, control_port);
    for (int i = 0; i < count; i++)
        streams.push_back(opened_stream(control, i + 1));
    close(control);
    pace = std::thread([this] { run(); });
}

forwarder::~forwarder() {
    ending = true;
    pace.join();
    for (stream const& one : streams) {
        close(one.in);
        close(one.out);
    }
    unlink(configuration.c_str());
}

forwarder::stream forwarder::opened_stream(int control, int number) const {
    stream const one{bound_socket(), bound_socket()};
    connect_to(one.in, create_connection(control, 2 * number, number, port_of(one.in)));
    connect_to(one.out, create_connection(control, 2 * number + 1, number, port_of(one.out)));
    return one;
}

telephones::traffic forwarder::blocks() const {
    return {blocks_per_packet * sent, blocks_per_packet * received};
}

void forwarder::run() {
    auto next = steady_clock::now();
    while (!ending) {
        send_and_receive();
        next += milliseconds(packet_ms);
        std::this_thread::sleep_until(next);
    }
}

void forwarder::send_and_receive() {
    unsigned char packet[header_bytes + payload_bytes] = {version_2};
    wire::put16(packet + 2, sequence);
    wire::put32(packet + 4, sequence * unsigned{payload_bytes});
    sequence++;
    for (stream const& one : streams) {
        wire::put32(packet + 8, static_cast<std::uint32_t>(one.in));
        sent += send(one.in, packet, sizeof packet, MSG_DONTWAIT) > 0;
        unsigned char arrived[header_bytes + payload_bytes];
        while (recv(one.out, arrived, sizeof arrived, MSG_DONTWAIT) > 0)
            received++;
    }
}
