#include "lib/sockets.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/bytes.h"
#include "tests/support/control_peer.h"

namespace {

class sockets : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(families, sockets, testing::Values(false, true),
                         [](auto const& v) { return v.param ? "ipv6" : "ipv4"; });

TEST_P(sockets, datagrams_arrive_with_their_sender) {
    bool const v6 = GetParam();
    auto const receive = v6 ? utils::recv_udp_packet6 : utils::recv_udp_packet4;
    udp_peer peer(v6);
    int const fd = utils::open_udp_socket(0, v6);
    ASSERT_TRUE(utils::valid_socket(fd));
    ip_port from(str("xyz"), 7);
    EXPECT_TRUE(receive(fd, from).empty()) << "waits never";
    EXPECT_TRUE(from == ip_port(str("xyz"), 7));

    ip_port const here(peer.address().address, bound_port(fd));
    for (int const size : {1, 160, 1500, 65507}) {
        std::string const sent(static_cast<std::size_t>(size), static_cast<char>(size));
        peer.send(here, sent);
        pollfd readable{fd, POLLIN, 0};
        ASSERT_EQ(poll(&readable, 1, 10000), 1);
        EXPECT_TRUE(to_string(receive(fd, from)) == sent) << size;
        EXPECT_TRUE(from == peer.address());
    }
    EXPECT_EQ(utils::send_udp_packet(fd, peer.address(), str("four")), 4);
    EXPECT_EQ(peer.received(fd), (std::vector<std::string>{"four"}));
    EXPECT_TRUE(utils::local_address_for(peer.address().address) == peer.address().address);
    utils::close_udp_socket(fd);
}

TEST(control_socket, is_bound_to_the_loopback) {
    int const fd = utils::open_loopback_socket(0);
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
    EXPECT_EQ(bound.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    utils::close_udp_socket(fd);
}

TEST(tcp_client, what_the_socket_does_not_accept_stays_queued_until_an_error) {
    control_peer control(9);
    int const small = 4096, listener = socket(AF_INET, SOCK_STREAM, 0);
    setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);  // accepted sockets inherit it
    ASSERT_EQ(listen(listener, 1), 0);                                  // binds to a free port
    int const fd = utils::open_tcp_client(ip_port(str(127, 0, 0, 1), bound_port(listener)));
    int const accepted = accept(listener, nullptr, nullptr);
    pollfd readable{accepted, POLLIN, 0}, writable{fd, POLLOUT, 0};
    ASSERT_EQ(poll(&writable, 1, 10000), 1);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    std::string all, arrived;
    while (all.size() < 300000)
        all += "piece " + std::to_string(all.size()) + ";";
    str queue = to_str(all);
    utils::send_tcp_packet(fd, queue);
    ASSERT_FALSE(queue.empty());
    while (arrived.size() < all.size()) {
        EXPECT_TRUE(to_string(queue) == all.substr(all.size() - static_cast<std::size_t>(queue.length())));
        char buffer[65536];
        ASSERT_EQ(poll(&readable, 1, 10000), 1);
        arrived.append(buffer, static_cast<std::size_t>(recv(accepted, buffer, sizeof buffer, 0)));
        if (poll(&writable, 1, 0) == 1)
            utils::send_tcp_packet(fd, queue);
    }
    EXPECT_TRUE(arrived == all);

    queue = str("to nobody");
    shutdown(fd, SHUT_WR);
    utils::send_tcp_packet(fd, queue);  // would raise SIGPIPE if not told otherwise
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(control.log_lines(),
              (std::vector<std::string>{"8 !!!!!!!!!!! TCP error code  " + std::to_string(EPIPE)}));
    utils::close_tcp_socket(fd);
    close(accepted);
    close(listener);
}

}  // namespace
