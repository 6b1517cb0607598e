#include <cerrno>

#include "lib/log.h"
#include "tests/support/media_fixture.h"
#include "tests/support/tcp_listener.h"

namespace {

/// Channel 1 and a far end for each of its connections.
class over_tcp : public media_fixture {
protected:
    over_tcp() : tested(channels[1]) { begin_call(tested); }
    int fd(bool of_rtcp) const { return of_rtcp ? tested.get_fd_rtcpt() : tested.get_fd_rtpt(); }
    /// What has arrived on a connection.
    void process(bool of_rtcp) {
        EXPECT_TRUE(shows(fd(of_rtcp), POLLIN));
        of_rtcp ? tested.process_rtcpt() : tested.process_rtpt();
    }
    void tunnel(bool of_rtcp, ip_port const& at, std::string const& data, bool tcp = true) {
        of_rtcp ? tested.tunnel_rtcp(at, to_str(data), tcp) : tested.tunnel_rtp(at, to_str(data), tcp);
    }

    channel& tested;
    tcp_listener rtp, rtcp;
};

// The rules of set_destination (no force) and of tunnelled data (force), for either connection.
TEST_F(over_tcp, which_peer_is_connected_to) {
    for (bool const of_rtcp : {false, true}) {
        tcp_listener first(of_rtcp), second(of_rtcp);  // of either family
        auto const aim = [&](ip_port const& at) {
            tested.set_destination(of_rtcp ? rtp.address() : at, of_rtcp ? at : rtcp.address(), true);
        };
        tested.init();
        tunnel(of_rtcp, ip_port(), "nobody is there");
        EXPECT_EQ(fd(of_rtcp), -1) << "no destination and no stored peer";

        aim(first.address());
        tcp_stream stream = first.accept();
        aim(first.address());
        tunnel(of_rtcp, first.address(), "a");
        tunnel(of_rtcp, ip_port(), "bc");
        EXPECT_EQ(stream.read(3), "abc") << "unframed, on the connection that is there";
        EXPECT_FALSE(first.connection_waits());

        aim(second.address());
        EXPECT_TRUE(stream.closed_by_peer());
        tcp_stream other = second.accept();
        tunnel(of_rtcp, first.address(), "d");
        EXPECT_TRUE(other.closed_by_peer()) << "tunnelled data re-aim the connection";
        tcp_stream again = first.accept();
        EXPECT_TRUE(shows(fd(of_rtcp), POLLOUT));
        tunnel(of_rtcp, first.address(), "e");
        EXPECT_EQ(again.read(1).find_first_of("de"), 0u);

        again.hang_up();
        process(of_rtcp);
        EXPECT_EQ(fd(of_rtcp), -1);
        aim(first.address());
        aim(second.address());
        EXPECT_EQ(fd(of_rtcp), -1) << "a closed connection is not reopened by a destination";
        tunnel(of_rtcp, second.address(), "f");
        EXPECT_TRUE(shows(fd(of_rtcp), POLLOUT));
        EXPECT_FALSE(second.connection_waits());
        tcp_stream reopened = first.accept();
        tunnel(of_rtcp, ip_port(), "g");
        EXPECT_EQ(reopened.read(1).find_first_of("fg"), 0u) << "forced: again to the old peer";

        aim(second.address());
        tcp_stream last = second.accept();
        tested.set_destination(ip_port(), ip_port(), false);
        EXPECT_TRUE(last.quiet()) << "the connection stays when media go back to datagrams";
        tunnel(of_rtcp, ip_port(), "h");
        EXPECT_EQ(last.read(1), "h");
        tested.init();
        EXPECT_TRUE(last.closed_by_peer());
    }
}

TEST_F(over_tcp, datagrams_are_tunnelled_from_the_media_ports) {
    tested.open(20000, 40000, 0);
    int const fds[] = {tested.get_fd_rtp4(), tested.get_fd_rtp6(), tested.get_fd_rtcp4(), tested.get_fd_rtcp6()};
    for (int i = 0; i < 4; i++) {
        bool const of_rtcp = i / 2, v6 = i % 2;
        udp_peer given(v6), stored(v6), unused(v6);
        tested.set_destination(ip_port(), ip_port(), false);
        tunnel(of_rtcp, ip_port(), "to nobody", false);
        tested.set_destination((of_rtcp ? unused : stored).address(), (of_rtcp ? stored : unused).address(), false);
        tunnel(of_rtcp, given.address(), "there", false);
        tunnel(of_rtcp, ip_port(), "here", false);
        tunnel(of_rtcp, ip_port(str("odd"), 1), "nowhere", false);
        EXPECT_EQ(given.received(fds[i]), lines{"there"}) << i;
        EXPECT_EQ(stored.received(fds[i]), lines{"here"}) << i;
        EXPECT_EQ(unused.received(fds[i]), lines{}) << i;
    }
}

TEST_F(over_tcp, reports_are_understood_framed_and_bare_on_either_connection) {
    tested.set_destination(rtp.address(), rtcp.address(), true);
    EXPECT_TRUE(shows(tested.get_fd_rtpt(), POLLOUT) && shows(tested.get_fd_rtcpt(), POLLOUT));
    tested.set_call_id(str("id"));
    tcp_stream const media = rtp.accept(), reports = rtcp.accept();
    std::string const report = from_hex("80C9 0001 AAAA0001 81CA 0002 AAAA0001 01020000");
    std::string const stun = from_hex("0001 0000 2112A442 0102030405060708090A0B0C");
    std::string const copy = element_of(14, short_element(4, 1) + element_of(22, "id") + element_of(9, report));
    std::string const framed_stun = from_hex("0300 0016 0014") + stun;
    std::string const framed_report = from_hex("0300 0016 0014") + report;
    auto const handed_up = [](tcp_listener const& far, std::string const& data) {
        std::string const port = be16(static_cast<unsigned>(far.address().port));
        return element_of(15, short_element(4, 1) + element_of(5, port + from_hex("7F000001")) + data);
    };
    std::string const mark = short_element(34, 1);
    struct {
        bool on_rtcp;
        std::string sent, reported;
    } const table[] = {{false, framed_report, copy},
                       {true, framed_report, copy},
                       {false, report, copy},
                       {true, report, copy},
                       {true, stun, handed_up(rtcp, element_of(14, stun))},
                       {true, framed_stun, handed_up(rtcp, element_of(14, framed_stun) + mark)},
                       {false, framed_stun, handed_up(rtp, element_of(13, framed_stun) + mark)}};
    for (auto const& row : table) {
        (row.on_rtcp ? reports : media).send(row.sent);
        process(row.on_rtcp);
        EXPECT_EQ(peer.reports(), lines{row.reported}) << &row - table;
    }
}

/// A far end with little room, called by channel 1; what is logged is looked at.
class slow_peer : public over_tcp {
protected:
    slow_peer() : far(false, little) { log_set_level(8); }
    tcp_stream call() {
        begin_call(tested);
        tested.set_destination(far.address(), ip_port(), true);
        setsockopt(tested.get_fd_rtpt(), SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
        EXPECT_TRUE(shows(tested.get_fd_rtpt(), POLLOUT));
        peer.log_lines();
        return far.accept();
    }
    /// Whether this error is logged when a packet is sent; 0: nothing is.
    bool say(int name, int error) {
        tested.process_audio(to_str(pcm_of(name)));
        lines const failed{"8 !!!!!!!!!!! TCP error code  " + std::to_string(error)};
        return peer.log_lines() == (error ? failed : lines{});
    }

    static constexpr int little = 4096;  // of a socket's buffer
    tcp_listener far;
};

TEST_F(slow_peer, a_tcp_peer_that_does_not_read_misses_packets_and_the_end_of_some) {
    std::string const head = from_hex("030000AE00AC");
    constexpr std::size_t frame = 6 + 12 + 160;
    tcp_stream const stream = call();
    std::size_t sent = 0, lost = 0;
    for (int in_a_row = 0; in_a_row < 5; sent++) {
        bool const full = say(7, EAGAIN);
        in_a_row = full ? in_a_row + 1 : 0;
        lost += full;
    }
    std::string all = stream.read_some();
    while (!shows(tested.get_fd_rtpt(), POLLOUT))
        all += stream.read_some();
    EXPECT_TRUE(say(8, 0));
    while (!all.ends_with(pcm_of(8)))
        all += stream.read_some();
    std::size_t begun = 0;
    for (std::size_t at = 0, next; at < all.size(); at = next, begun++) {
        next = std::min(all.find(head, at + 1), all.size());
        ASSERT_EQ(all.compare(at, head.size(), head), 0);
        EXPECT_LE(next - at, frame);
    }
    EXPECT_LE(begun, sent - lost + 1);
    EXPECT_EQ(std::uint16_t(get_be16(all, all.size() - frame + 8) - get_be16(all, 8)), std::uint16_t(sent))
        << "what was refused was counted";
}

TEST_F(slow_peer, another_peer_gets_nothing_of_what_the_first_one_did_not_read) {
    tcp_stream const stream = call();
    str const long_data('x', 8000);
    for (int i = 0; i < 500; i++)
        tested.tunnel_rtp(ip_port(), long_data, true);
    tcp_listener other;
    tested.set_destination(other.address(), ip_port(), true);
    tcp_stream const next = other.accept();
    EXPECT_TRUE(shows(tested.get_fd_rtpt(), POLLOUT));
    tunnel(false, ip_port(), "y");
    EXPECT_EQ(next.read(1), "y");
}

TEST_F(slow_peer, a_tcp_peer_that_resets_is_closed_and_left_alone) {
    for (bool const notice_by_sending : {false, true}) {
        tcp_stream stream = call();
        stream.reset();
        ASSERT_TRUE(shows(tested.get_fd_rtpt(), POLLIN));
        EXPECT_TRUE(!notice_by_sending || say(7, ECONNRESET));
        tested.process_rtpt();
        EXPECT_EQ(peer.log_lines(),
                  lines{"7 RTP connection to " + to_string(utils::readable_ip(far.address())) + " closed"});
        EXPECT_EQ(tested.get_fd_rtpt(), -1);
        EXPECT_TRUE(say(7, 0));
    }
}

}  // namespace
