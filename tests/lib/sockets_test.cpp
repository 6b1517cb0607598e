#include "lib/sockets.h"

#include <cerrno>
#include <ctime>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"

namespace {

std::string local_address(int fd) {
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length), 0);
    return to_hex({reinterpret_cast<char const*>(&bound.sin_addr), 4});
}

bool waits_never(int fd) {
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

class sockets : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(families, sockets, testing::Values(false, true),
                         [](auto const& v) { return v.param ? "ipv6" : "ipv4"; });

TEST_P(sockets, datagrams_arrive_with_their_sender) {
    bool const v6 = GetParam();
    auto const receive = v6 ? utils::recv_udp_packet6 : utils::recv_udp_packet4;
    udp_peer const peer(v6);
    int const fd = utils::open_udp_socket(0, v6);
    ASSERT_TRUE(utils::valid_socket(fd));
    EXPECT_TRUE(waits_never(fd));

    ip_port const untouched(str("xyz"), 7);
    ip_port from = untouched;
    EXPECT_TRUE(receive(fd, from).empty());
    EXPECT_TRUE(from == untouched);

    ip_port const here(peer.address().address, bound_port(fd));
    for (int const size : {1, 160, 1500, 65507}) {
        std::string const sent(static_cast<std::size_t>(size), static_cast<char>(size));
        peer.send(here, sent);
        pollfd readable{fd, POLLIN, 0};
        ASSERT_EQ(poll(&readable, 1, 10000), 1);
        EXPECT_TRUE(to_string(receive(fd, from)) == sent) << size;
        EXPECT_TRUE(from == peer.address());
    }
    utils::close_udp_socket(fd);
}

TEST_P(sockets, datagrams_leave_for_the_family_of_the_address) {
    udp_peer peer(GetParam());
    int const fd = utils::open_udp_socket(0, GetParam());
    EXPECT_EQ(utils::send_udp_packet(fd, peer.address(), str("four")), 4);
    EXPECT_EQ(peer.received(fd), (std::vector<std::string>{"four"}));
    utils::close_udp_socket(fd);
    EXPECT_EQ(utils::send_udp_packet(-1, peer.address(), str("four")), -1);
}

TEST_P(sockets, an_occupied_port_is_logged_and_given_up) {
    control_peer control(0);
    int const first = utils::open_udp_socket(0, GetParam());
    int const port = bound_port(first);
    EXPECT_EQ(utils::open_udp_socket(port, GetParam()), -1);
    EXPECT_EQ(control.log_lines(),
              (std::vector<std::string>{std::string(GetParam() ? "0 UDPv6" : "0 UDP") + ": bind() to port " +
                                        std::to_string(port) + " failed"}));
    int const other_family = utils::open_udp_socket(port, !GetParam());
    EXPECT_TRUE(utils::valid_socket(other_family)) << "the families don't get into each other's way";
    utils::close_udp_socket(other_family);
    utils::close_udp_socket(first);
}

// Two packets, each with the time window in which it was sent; both are read later.
TEST_P(sockets, packets_carry_their_time_of_arrival) {
    udp_peer const peer(GetParam());
    int const fd = utils::open_udp_socket(0, GetParam());
    utils::receive_stamp(fd);  // switches stamping on
    auto const wall_clock = [] {
        timespec t{};
        clock_gettime(CLOCK_REALTIME, &t);
        return t.tv_sec * 1000000000LL + t.tv_nsec;
    };
    long long window[3];
    for (int i = 0; i < 2; i++) {
        window[i] = wall_clock();
        peer.send(ip_port(peer.address().address, bound_port(fd)), "x");
        pollfd readable{fd, POLLIN, 0};
        ASSERT_EQ(poll(&readable, 1, 10000), 1);
        window[i + 1] = wall_clock();
        poll(nullptr, 0, 5);
    }
    for (int i = 0; i < 2; i++) {
        ip_port from;
        (GetParam() ? utils::recv_udp_packet6 : utils::recv_udp_packet4)(fd, from);
        long long const stamp = utils::receive_stamp(fd).diff_ticks(rtimestamp());
        EXPECT_EQ(stamp % 1000, 0);
        EXPECT_GE(stamp, window[i] - 1000);
        EXPECT_LE(stamp, window[i + 1]);
    }
    utils::close_udp_socket(fd);
    EXPECT_TRUE(utils::receive_stamp(fd) == rtimestamp());
}

TEST_P(sockets, local_address_towards_a_destination) {
    udp_peer const peer(GetParam());
    EXPECT_TRUE(utils::local_address_for(peer.address().address) == peer.address().address);
}

TEST(control_socket, is_bound_to_the_loopback) {
    int const fd = utils::open_loopback_socket(0);
    EXPECT_EQ(local_address(fd), "7F000001");
    EXPECT_TRUE(waits_never(fd));
    control_peer control(0);
    int const port = bound_port(fd);
    EXPECT_EQ(utils::open_loopback_socket(port), -1);
    EXPECT_EQ(control.log_lines(),
              (std::vector<std::string>{"0 UDP: bind() to port " + std::to_string(port) + " failed"}));
    utils::close_udp_socket(fd);
}

// ---- TCP

class tcp_client : public testing::TestWithParam<bool> {
protected:
    tcp_client() : control(9), listener(socket(GetParam() ? AF_INET6 : AF_INET, SOCK_STREAM, 0)) {
        int const small = 4096;  // accepted sockets inherit it
        setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        EXPECT_EQ(listen(listener, 1), 0);  // binds to a free port
        str const loopback = to_str(from_hex(GetParam() ? "00000000000000000000000000000001" : "7F000001"));
        fd = utils::open_tcp_client(ip_port(loopback, bound_port(listener)));
        accepted = accept(listener, nullptr, nullptr);
        pollfd writable{fd, POLLOUT, 0};
        EXPECT_EQ(poll(&writable, 1, 10000), 1);
    }
    ~tcp_client() override {
        utils::close_tcp_socket(fd);
        close(accepted);
        close(listener);
    }
    control_peer control;
    int listener;
    int fd;
    int accepted;
};
INSTANTIATE_TEST_SUITE_P(families, tcp_client, testing::Values(false, true),
                         [](auto const& v) { return v.param ? "ipv6" : "ipv4"; });

TEST_P(tcp_client, what_the_socket_does_not_accept_stays_queued) {
    ASSERT_TRUE(waits_never(fd));
    int const small = 4096;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    std::string all;
    while (all.size() < 300000)
        all += "piece " + std::to_string(all.size()) + ";";
    str queue = to_str(all);
    utils::send_tcp_packet(fd, queue);
    ASSERT_FALSE(queue.empty());
    ASSERT_LT(queue.length(), static_cast<int>(all.size()));
    std::string arrived;
    while (arrived.size() < all.size()) {
        EXPECT_TRUE(to_string(queue) == all.substr(all.size() - static_cast<std::size_t>(queue.length())));
        char buffer[65536];
        pollfd readable{accepted, POLLIN, 0};
        ASSERT_EQ(poll(&readable, 1, 10000), 1);
        arrived.append(buffer, static_cast<std::size_t>(recv(accepted, buffer, sizeof buffer, 0)));
        pollfd writable{fd, POLLOUT, 0};
        if (poll(&writable, 1, 0) == 1)
            utils::send_tcp_packet(fd, queue);
    }
    EXPECT_TRUE(arrived == all);
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(control.log_lines(), std::vector<std::string>{});
}

TEST_P(tcp_client, received_bytes_come_as_they_arrive_and_a_closed_peer_gives_nothing) {
    EXPECT_TRUE(utils::recv_tcp_packet(fd).empty());
    ASSERT_EQ(send(accepted, "hello", 5, 0), 5);
    pollfd readable{fd, POLLIN, 0};
    ASSERT_EQ(poll(&readable, 1, 10000), 1);
    EXPECT_EQ(to_string(utils::recv_tcp_packet(fd)), "hello");
    shutdown(accepted, SHUT_RDWR);
    ASSERT_EQ(poll(&readable, 1, 10000), 1);
    EXPECT_TRUE(utils::recv_tcp_packet(fd).empty());
}

TEST_P(tcp_client, an_error_loses_what_was_queued) {
    str queue("to nobody");
    shutdown(fd, SHUT_WR);
    utils::send_tcp_packet(fd, queue);  // would raise SIGPIPE if not told otherwise
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(control.log_lines(),
              (std::vector<std::string>{"8 !!!!!!!!!!! TCP error code  " + std::to_string(EPIPE)}));
    utils::send_tcp_packet(-1, queue);
    EXPECT_EQ(control.log_lines(), std::vector<std::string>{}) << "nothing queued: nothing done";
}

TEST(tcp_connect, failures_are_logged) {
    control_peer control(9);
    EXPECT_EQ(utils::open_tcp_client(ip_port(str("12345"), 80)), -1);
    EXPECT_EQ(utils::open_tcp_client(ip_port(to_str(from_hex("FE800000000000000000000000000001")), 80)), -1)
        << "a link-local address of no link";
    EXPECT_EQ(control.log_lines(), (std::vector<std::string>{"0 Could not set destination 0.0.0.0:80",
                                                             "3 Could not connect to [fe80::1]:80"}));
}

}  // namespace
