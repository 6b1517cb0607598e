#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lib/sockets.h"
#include "lib/timeout.h"
#include "media/channel.h"
#include "tests/support/media_fixture.h"

namespace {

/// A port held for as long as this lives.
class occupied_port {
public:
    occupied_port(int port, bool over_ipv6) : fd(utils::open_udp_socket(port, over_ipv6)) {}
    ~occupied_port() {
        if (fd >= 0)
            close(fd);
    }
    occupied_port(occupied_port const&) = delete;
    occupied_port& operator=(occupied_port const&) = delete;
    bool held() const { return fd >= 0; }

private:
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
                free = free && occupied_port(port, false).held() && occupied_port(port, true).held();
            if (free)
                return from;
        }
        ADD_FAILURE() << "no free ports";
        return 0;
    }
    static long open_descriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }
    void expect_closed() const {
        EXPECT_EQ(tested.get_rtp_port(), 0);
        EXPECT_EQ(tested.get_rtcp_port(), 0);
        for (int const fd : {tested.get_fd_rtp4(), tested.get_fd_rtcp4(), tested.get_fd_rtp6(),
                             tested.get_fd_rtcp6(), tested.get_fd_rtpt(), tested.get_fd_rtcpt()})
            EXPECT_EQ(fd, -1);
    }
    int tries() {
        int n = 0;
        for (std::string const& line : peer.log_lines())
            n += line.starts_with("9 Trying to open ports ");
        return n;
    }

    channel& tested;
    int base;
};

TEST_F(channel_sockets, small_ranges_and_their_edges) {
    struct {
        int from, to;  // relative to an even port
        int rtp;       // expected; -1: none
        int most_tries;
    } const table[] = {{0, 2, 0, 1},  {0, 1, 0, 1},  {1, 2, -1, 0}, {1, 3, 2, 1},
                       {0, 0, -1, 0}, {4, 0, -1, 0}, {1, 4, 2, 1},  {1, 5, -2, 8}};
    for (auto const& [from, to, rtp, most_tries] : table) {
        SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
        peer.log_lines();
        tested.open(base + from, base + to, 0);
        EXPECT_LE(tries(), most_tries);
        if (rtp == -1) {
            expect_closed();
            continue;
        }
        if (rtp >= 0) {
            EXPECT_EQ(tested.get_rtp_port(), base + rtp);
        }
        EXPECT_EQ(tested.get_rtp_port() % 2, 0);
        EXPECT_EQ(tested.get_rtcp_port(), tested.get_rtp_port() + 1);
        EXPECT_EQ(bound_port(tested.get_fd_rtp4()), tested.get_rtp_port());
        EXPECT_EQ(bound_port(tested.get_fd_rtp6()), tested.get_rtp_port());
        EXPECT_EQ(bound_port(tested.get_fd_rtcp4()), tested.get_rtcp_port());
        EXPECT_EQ(bound_port(tested.get_fd_rtcp6()), tested.get_rtcp_port());
    }
}

TEST_F(channel_sockets, random_ports_spread_over_the_range) {
    std::set<int> ports;
    for (int i = 0; i < 200; i++) {
        tested.open(base + 1, base + 12, 0);
        ports.insert(tested.get_rtp_port() - base);
    }
    EXPECT_EQ(ports, (std::set<int>{2, 4, 6, 8, 10}));
}

TEST_F(channel_sockets, a_pair_counts_only_with_every_socket_of_it) {
    for (int const taken : {0, 1})
        for (bool const v6 : {false, true}) {
            auto const holder = std::make_unique<occupied_port>(base + taken, v6);
            long const before = open_descriptors();
            peer.log_lines();
            tested.open(base, base + 2, 0);
            expect_closed();
            EXPECT_EQ(open_descriptors(), before);
            EXPECT_EQ(peer.log_lines(),
                      (std::vector<std::string>{"9 Trying to open ports " + std::to_string(base) + " and " +
                                                    std::to_string(base + 1),
                                                std::string(v6 ? "0 UDPv6" : "0 UDP") + ": bind() to port " +
                                                    std::to_string(base + taken) + " failed"}));
            tested.open(base, base + 4, 0);
            EXPECT_EQ(tested.get_rtp_port(), base + 2) << "by chance or by the scan";
            tested.init();
        }
}

TEST_F(channel_sockets, eight_random_tries_then_a_scan) {
    occupied_port const first(base, false), second(base + 3, true);
    peer.log_lines();
    tested.open(base, base + 4, 0);
    expect_closed();
    EXPECT_EQ(tries(), 8 + 2);
    tested.open(base, base + 6, 0);
    EXPECT_EQ(tested.get_rtp_port(), base + 4);
    tries();
    tested.open(base, base + 3, 0);  // the smallest range with a random choice, of one
    EXPECT_EQ(tries(), 8 + 2);
}

TEST_F(channel_sockets, only_the_families_in_use) {
    ipv6 = false;
    tested.open(base, base + 2, 0);
    EXPECT_GE(tested.get_fd_rtp4(), 0);
    EXPECT_GE(tested.get_fd_rtcp4(), 0);
    EXPECT_EQ(tested.get_fd_rtp6(), -1);
    EXPECT_EQ(tested.get_fd_rtcp6(), -1);
    ipv6 = true;
    ipv4 = false;
    tested.open(base, base + 2, 0);
    EXPECT_EQ(tested.get_fd_rtp4(), -1);
    EXPECT_EQ(tested.get_fd_rtcp4(), -1);
    EXPECT_GE(tested.get_fd_rtp6(), 0);
    EXPECT_GE(tested.get_fd_rtcp6(), 0);
}

TEST_F(channel_sockets, opening_again_closes_the_old_ports) {
    tested.open(base, base + 2, 0);
    long const before = open_descriptors();
    tested.open(base + 2, base + 4, 0);
    EXPECT_EQ(tested.get_rtp_port(), base + 2);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(occupied_port(base, false).held());
    tested.close_sockets();
    EXPECT_EQ(open_descriptors(), before - 4);
    EXPECT_EQ(tested.get_fd_rtp4(), -1);
}

TEST_F(channel_sockets, type_of_service_is_for_rtp_only) {
    auto const tos = [](int fd) {
        int value = -1;
        socklen_t length = sizeof value;
        EXPECT_EQ(getsockopt(fd, IPPROTO_IP, IP_TOS, &value, &length), 0);
        return value;
    };
    for (int const value : {0xA0, 0, 0x10}) {
        tested.open(base, base + 2, value);
        EXPECT_EQ(tos(tested.get_fd_rtp4()), value);
        EXPECT_EQ(tos(tested.get_fd_rtp6()), value);
        EXPECT_EQ(tos(tested.get_fd_rtcp4()), 0);
        EXPECT_EQ(tos(tested.get_fd_rtcp6()), 0);
    }
}

TEST_F(channel_sockets, every_open_schedules_one_report_and_a_failed_one_none) {
    EXPECT_EQ(timeout_queue::global_queue.size(), 0);
    tested.open(base, base, 0);
    EXPECT_EQ(timeout_queue::global_queue.size(), 0);
    tested.open(base, base + 2, 0);
    tested.open(base, base + 2, 0);
    EXPECT_EQ(timeout_queue::global_queue.size(), 1);
    EXPECT_GT(timeout_queue::global_queue.delay(true), 0);
    EXPECT_LE(timeout_queue::global_queue.delay(true), 100);
    tested.init();
    EXPECT_EQ(timeout_queue::global_queue.size(), 0);
}

TEST_F(channel_sockets, init_makes_a_channel_idle) {
    tested.open(base, base + 2, 0);
    tested.set_call_id(str("call"));
    tested.set_codec(0, 0, 101, to_str(std::string(128, '\0')), 20);
    tested.set_destination(peer.address(), ip_port(), false);
    tested.set_playback(1, 1);
    tested.add_playback(str("announcement"));
    tested.send_dtmf(1);
    EXPECT_EQ(to_string(tested.dumptext()), "4(" + to_string(utils::readable_ip(peer.address())) + ")");
    peer.log_lines();
    tested.init();
    EXPECT_EQ(peer.log_lines(), (std::vector<std::string>{"8 Close call 1"}));
    expect_closed();
    EXPECT_FALSE(tested.output_available());
    EXPECT_EQ(to_string(tested.dumptext()), "4()");
    tested.init();
    EXPECT_EQ(peer.log_lines(), std::vector<std::string>{}) << "no call, no line";
}

}  // namespace
