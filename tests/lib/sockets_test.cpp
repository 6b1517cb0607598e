#include "lib/sockets.h"

#include <cstdarg>
#include <cstring>

#include <linux/sockios.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include "tests/support/tcp_listener.h"

static std::string stamp_to_give;  // bytes; empty: the kernel's own

/// In place of ioctl() (--wrap); the second is its name in 32-bit programs with 64-bit time.
extern "C" int __wrap_ioctl(int fd, unsigned number, ...) {
    va_list arguments;
    va_start(arguments, number);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (number != SIOCGSTAMP_OLD || stamp_to_give.empty())
        return static_cast<int>(syscall(SYS_ioctl, fd, number, argument));
    stamp_to_give.copy(static_cast<char*>(argument), stamp_to_give.size());
    return 0;
}
extern "C" int __wrap___ioctl_time64(int, unsigned, ...) __attribute__((alias("__wrap_ioctl")));

namespace {

rtimestamp time_of_day() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return rtimestamp(now.tv_sec * 1000000000LL + now.tv_usec * 1000LL);
}

TEST(sockets, datagrams_arrive_with_their_sender) {
    for (bool const v6 : {false, true}) {
        auto const receive = v6 ? utils::recv_udp_packet6 : utils::recv_udp_packet4;
        udp_peer peer(v6);
        int const fd = utils::open_udp_socket(0, v6);
        ASSERT_TRUE(utils::valid_socket(fd));
        ip_port from(str("xyz"), 7);
        EXPECT_TRUE(receive(fd, from, nullptr).empty()) << "waits never";
        EXPECT_TRUE(from == ip_port(str("xyz"), 7));

        ip_port const here(peer.address().address, bound_port(fd));
        utils::start_stamping(fd);
        for (int const size : {1, 160, 1500, 65507}) {
            std::string const sent(static_cast<std::size_t>(size), static_cast<char>(size));
            rtimestamp const before = time_of_day();
            peer.send(here, sent);
            ASSERT_TRUE(shows(fd, POLLIN));
            rtimestamp stamp;
            EXPECT_TRUE(to_string(receive(fd, from, &stamp)) == sent) << size;
            EXPECT_TRUE(from == peer.address());
            EXPECT_GE(stamp.diff_ticks(before), 0);
            EXPECT_GE(time_of_day().diff_ticks(stamp), 0);
        }
        EXPECT_EQ(utils::send_udp_packet(fd, peer.address(), str("four")), 4);
        EXPECT_EQ(peer.received(fd), (std::vector<std::string>{"four"}));
        EXPECT_TRUE(utils::local_address_for(peer.address().address) == peer.address().address);
        for (int const length : {1, 3, 5, 15, 17}) {
            EXPECT_EQ(utils::send_udp_packet(fd, ip_port(str('\0', length), peer.address().port), str("x")), -1);
            EXPECT_TRUE(utils::local_address_for(str('\0', length)).empty()) << length;
        }
        EXPECT_EQ(peer.received(fd), std::vector<std::string>{}) << "0.0.0.0 would have reached it";
        utils::close_udp_socket(fd);
    }
}

TEST(sockets, stamps_are_words_of_32_or_64_bits) {
    auto const stamp_of = [](auto seconds, auto microseconds) {
        std::uint64_t words[2] = {};
        std::memcpy(words, &seconds, sizeof seconds);
        std::memcpy(reinterpret_cast<char*>(words) + sizeof seconds, &microseconds, sizeof microseconds);
        stamp_to_give.assign(reinterpret_cast<char const*>(words), 2 * sizeof seconds);
        rtimestamp const stamp = utils::receive_stamp(-1);
        stamp_to_give.clear();
        return stamp.diff_ticks(rtimestamp());
    };
    for (std::uint32_t const seconds : {0u, 1700000000u, 4000000000u})
        for (std::uint32_t const us : {0u, 999999u}) {
            long long const expected = seconds * 1000000000LL + us * 1000LL;
            EXPECT_EQ(stamp_of(seconds, us), expected);
            EXPECT_EQ(stamp_of(std::uint64_t{seconds}, std::uint64_t{us}), expected);
        }
    EXPECT_EQ(utils::receive_stamp(-1).diff_ticks(rtimestamp()), 0);
}

TEST(sockets, that_of_call_control_is_bound_to_the_loopback) {
    int const fd = utils::open_loopback_socket(0);
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
    EXPECT_EQ(bound.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    utils::close_udp_socket(fd);
}

TEST(tcp_client, what_the_socket_does_not_accept_stays_queued_until_an_error) {
    constexpr int small = 4096;
    tcp_listener const listener(false, small);
    int const fd = utils::open_tcp_client(listener.address());
    tcp_stream const accepted = listener.accept();
    ASSERT_TRUE(shows(fd, POLLOUT));
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    std::string all, arrived;
    while (all.size() < 300000)
        all += "piece " + std::to_string(all.size()) + ";";
    str queue = to_str(all);
    utils::send_tcp_packet(fd, queue);
    ASSERT_FALSE(queue.empty());
    for (; arrived.size() < all.size(); arrived += accepted.read_some())
        if (shows(fd, POLLOUT, 0))
            utils::send_tcp_packet(fd, queue);
    EXPECT_TRUE(arrived == all && queue.empty());
    queue = str("to nobody");
    shutdown(fd, SHUT_WR);
    utils::send_tcp_packet(fd, queue);  // would raise SIGPIPE if not told otherwise
    EXPECT_TRUE(queue.empty());
    utils::close_tcp_socket(fd);
}

}  // namespace
