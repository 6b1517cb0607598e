#include <algorithm>
#include <array>
#include <filesystem>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lib/sockets.h"
#include "tests/support/media_fixture.h"

namespace {

/// A port held for as long as this lives.
struct occupied_port {
    occupied_port(int port, bool over_ipv6) : fd(utils::open_udp_socket(port, over_ipv6)) {}
    ~occupied_port() { utils::close_udp_socket(fd); }
    int fd;
};

class channel_sockets : public media_fixture {
protected:
    channel_sockets() : media_fixture(9), tested(channels[0]), base(free_range()) {}

    /// An even port from which on 12 ports are free in both families: below those that the system gives out and
    /// other tests use.
    static int free_range() {
        constexpr int lowest = 10000, length = 12, ranges = 600;
        for (int i = 0; i < ranges; i++) {
            int const from = lowest + 16 * ((getpid() + i) % ranges);
            bool free = true;
            for (int port = from; port < from + length; port++)
                free = free && occupied_port(port, false).fd >= 0 && occupied_port(port, true).fd >= 0;
            if (free)
                return from;
        }
        ADD_FAILURE() << "no free ports";
        return 0;
    }
    static long open_descriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }
    using four = std::array<int, 4>;
    four sockets() const {
        return {tested.get_fd_rtp4(), tested.get_fd_rtp6(), tested.get_fd_rtcp4(), tested.get_fd_rtcp6()};
    }
    /// Opens within a range relative to the base. The RTP port, relative too; -1 when it stays closed.
    int open(int from, int to, int tos = 0) {
        peer.log_lines();
        tested.open(base + from, base + to, tos);
        log = peer.log_lines();
        int const port = tested.get_rtp_port(), rtcp = tested.get_rtcp_port();
        four ports{-1, -1, -1, -1};
        for (unsigned i = 0; i < 4 && port; i++)
            ports[i] = bound_port(sockets()[i]);
        EXPECT_EQ(port ? ports : sockets(), port ? (four{port, port, port + 1, port + 1}) : (four{-1, -1, -1, -1}));
        EXPECT_EQ(rtcp, port ? port + 1 : 0);
        return port ? port - base : -1;
    }
    long tries() const {
        return std::ranges::count_if(log, [](auto const& line) { return line.starts_with("9 Trying to open "); });
    }

    channel& tested;
    int base;
    lines log;  ///< of the last open()
};

TEST_F(channel_sockets, small_ranges_and_their_edges) {
    constexpr int any = -2, table[][4] = {// from and to, RTP port, most tries
                                          {0, 2, 0, 1},  {0, 1, 0, 1},  {1, 2, -1, 0}, {1, 3, 2, 1},
                                          {0, 0, -1, 0}, {4, 0, -1, 0}, {1, 4, 2, 1},  {1, 5, any, 8}};
    for (auto const& [from, to, rtp, most_tries] : table) {
        int const got = open(from, to);
        EXPECT_TRUE(got == rtp || (rtp == any && (got == 2 || got == 4))) << from << " to " << to << ": " << got;
        EXPECT_LE(tries(), most_tries) << from << " to " << to;
    }
}

TEST_F(channel_sockets, a_pair_counts_only_with_every_socket_of_it) {
    for (int const taken : {0, 1, 2, 3}) {
        bool const v6 = taken / 2;
        int const port = base + taken % 2;
        occupied_port const holder(port, v6);
        long const before = open_descriptors();
        EXPECT_EQ(open(0, 2), -1);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(log.back(),
                  (v6 ? "0 UDPv6: bind() to port " : "0 UDP: bind() to port ") + std::to_string(port) + " failed");
    }
}

TEST_F(channel_sockets, eight_random_tries_then_a_scan) {
    occupied_port const first(base, false), second(base + 3, true);
    EXPECT_EQ(open(0, 4), -1);
    EXPECT_EQ(tries(), 8 + 2);
    EXPECT_EQ(open(0, 6), 4);
    long const before = open_descriptors();
    tested.init();
    EXPECT_EQ(sockets(), (four{-1, -1, -1, -1}));
    EXPECT_EQ(open_descriptors(), before - 4);
}

TEST_F(channel_sockets, type_of_service_is_for_rtp_only) {
    for (int const value : {0xA0, 0, 0x10}) {
        open(0, 2, value);
        for (unsigned i = 0; i < 4; i++) {
            int tos = -1;
            socklen_t length = sizeof tos;
            EXPECT_EQ(getsockopt(sockets()[i], IPPROTO_IP, IP_TOS, &tos, &length), 0);
            EXPECT_EQ(tos, i < 2 ? value : 0);
        }
    }
}

}  // namespace
