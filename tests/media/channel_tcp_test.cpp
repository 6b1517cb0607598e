#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/channel.h"
#include "tests/media/tcp_listener.h"
#include "tests/support/bytes.h"
#include "tests/support/manual_clock.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"

namespace {

using lines = std::vector<std::string>;

void wait_until(int fd, short event) {
    pollfd wanted{fd, event, 0};
    ASSERT_EQ(poll(&wanted, 1, 10000), 1);
}

std::string framed(std::string const& packet) {
    auto const n = static_cast<unsigned>(packet.size());
    return from_hex("0300") + be16(n + 2) + be16(n) + packet;
}

/// Channel 1, with linear PCM as payload type 0.
class over_tcp : public media_fixture {
protected:
    over_tcp() : media_fixture(-1), tested(channels[1]) { start(); }
    void start() {
        tested.init();
        tested.set_codec(0, 0, -1, to_str(std::string(128, '\0')), 10);
        tested.set_ssrc(to_str(from_hex("11223344")));
    }
    void connect(tcp_listener const& far, tcp_listener const& far_rtcp) {
        tested.set_destination(far.address(), far_rtcp.address(), true);
        wait_until(tested.get_fd_rtpt(), POLLOUT);
        wait_until(tested.get_fd_rtcpt(), POLLOUT);
    }
    void process_rtp() {
        wait_until(tested.get_fd_rtpt(), POLLIN);
        tested.process_rtpt();
    }
    void process_rtcp() {
        wait_until(tested.get_fd_rtcpt(), POLLIN);
        tested.process_rtcpt();
    }

    channel& tested;
    tcp_listener rtp, rtcp;
};

TEST_F(over_tcp, audio_travels_framed_in_both_directions) {
    for (bool const ipv6 : {false, true}) {
        tcp_listener far(ipv6), far_rtcp(ipv6);
        start();
        connect(far, far_rtcp);
        tcp_stream const stream = far.accept();
        tested.process_audio(to_str(pcm_of(7)));
        tested.process_audio(to_str(pcm_of(8)));
        for (int const name : {7, 8}) {
            EXPECT_EQ(to_hex(stream.read(6)), "030000AE00AC");
            rtp_packet const sent = rtp_packet::parse(stream.read(172));
            EXPECT_EQ(sent.ssrc, 0x11223344u);
            EXPECT_EQ(sent.marker, name == 7);
            EXPECT_EQ(sent.payload, pcm_of(name));
        }
        for (int i = 0; i < 3; i++) {
            rtp_packet packet;
            packet.sequence = static_cast<std::uint16_t>(100 + i);
            packet.payload = pcm_of(20 + i);
            stream.send(framed(packet.build()));
            process_rtp();
            EXPECT_EQ(first_sample(to_string(tested.get_samples())), 20 + i);
        }
        EXPECT_TRUE(stream.quiet());
    }
    EXPECT_EQ(to_string(tested.dumptext()).substr(0, 12), "4(TCP:[::1]:");
}

TEST_F(over_tcp, a_report_of_how_many_octets_left_counts_the_frames) {
    manual_clock clock(1);
    connect(rtp, rtcp);
    tcp_stream const media = rtp.accept();
    tcp_stream reports = rtcp.accept();
    tested.process_audio(to_str(pcm_of(7)));
    tested.send_rtcp_sr();
    EXPECT_EQ(to_hex(reports.read(6)), "030000360034");
    std::string const report = reports.read(52);
    EXPECT_EQ(report.substr(16, 4), media.read(18).substr(10, 4)) << "the time stamp of what was sent last";
    EXPECT_EQ(get_be32(report, 20), 1u);
    EXPECT_EQ(get_be32(report, 24), 178u);
    reports.hang_up();
    process_rtcp();
    tested.send_rtcp_sr();
    EXPECT_EQ(tested.get_fd_rtcpt(), -1);
}

// The rules of set_destination (no force) and of tunnelled data (force), for either connection.
TEST_F(over_tcp, which_peer_is_connected_to) {
    for (bool const of_rtcp : {false, true}) {
        tcp_listener first, second;
        auto const fd = [&] { return of_rtcp ? tested.get_fd_rtcpt() : tested.get_fd_rtpt(); };
        auto const aim = [&](ip_port const& at) {
            tested.set_destination(of_rtcp ? rtp.address() : at, of_rtcp ? at : rtcp.address(), true);
        };
        auto const tunnel = [&](ip_port const& at, std::string const& data) {
            of_rtcp ? tested.tunnel_rtcp(at, to_str(data), true) : tested.tunnel_rtp(at, to_str(data), true);
        };
        tested.init();
        tunnel(ip_port(), "nobody is there");
        EXPECT_EQ(fd(), -1) << "no destination and no stored peer";

        aim(first.address());
        tcp_stream stream = first.accept();
        aim(first.address());
        tunnel(first.address(), "a");
        tunnel(ip_port(), "bc");
        EXPECT_EQ(stream.read(3), "abc") << "unframed, on the connection that is there";
        EXPECT_FALSE(first.connection_waits());

        aim(second.address());
        EXPECT_TRUE(stream.closed_by_peer());
        tcp_stream other = second.accept();
        tunnel(first.address(), "d");
        EXPECT_TRUE(other.closed_by_peer()) << "tunnelled data re-aim the connection";
        tcp_stream again = first.accept();
        wait_until(fd(), POLLOUT);
        tunnel(first.address(), "e");
        EXPECT_EQ(again.read(1).find_first_of("de"), 0u);

        again.hang_up();
        of_rtcp ? process_rtcp() : process_rtp();
        EXPECT_EQ(fd(), -1);
        aim(first.address());
        aim(second.address());
        EXPECT_EQ(fd(), -1) << "a closed connection is not reopened by a destination";
        tunnel(second.address(), "f");
        wait_until(fd(), POLLOUT);
        EXPECT_FALSE(second.connection_waits());
        tcp_stream reopened = first.accept();
        tunnel(ip_port(), "g");
        EXPECT_EQ(reopened.read(1).find_first_of("fg"), 0u) << "forced: again to the old peer";

        aim(second.address());
        tcp_stream last = second.accept();
        tested.set_destination(ip_port(), ip_port(), false);
        EXPECT_TRUE(last.quiet()) << "the connection stays when media go back to datagrams";
        tunnel(ip_port(), "h");
        EXPECT_EQ(last.read(1), "h");
        tested.init();
        EXPECT_TRUE(last.closed_by_peer());
    }
}

TEST_F(over_tcp, datagrams_are_tunnelled_from_the_media_ports) {
    tested.open(20000, 40000, 0);
    for (bool const of_rtcp : {false, true})
        for (bool const v6 : {false, true}) {
            udp_peer given(v6), stored(v6), unused(v6);
            int const fd = v6 ? (of_rtcp ? tested.get_fd_rtcp6() : tested.get_fd_rtp6())
                              : (of_rtcp ? tested.get_fd_rtcp4() : tested.get_fd_rtp4());
            auto const tunnel = [&](ip_port const& at, char const* data) {
                of_rtcp ? tested.tunnel_rtcp(at, str(data), false) : tested.tunnel_rtp(at, str(data), false);
            };
            tested.set_destination(ip_port(), ip_port(), false);
            tunnel(ip_port(), "to nobody");
            tested.set_destination((of_rtcp ? unused : stored).address(),
                                   (of_rtcp ? stored : unused).address(), false);
            tunnel(given.address(), "there");
            tunnel(ip_port(), "here");
            tunnel(ip_port(str("odd"), 1), "nowhere");
            EXPECT_EQ(given.received(fd), lines{"there"}) << of_rtcp << v6;
            EXPECT_EQ(stored.received(fd), lines{"here"}) << of_rtcp << v6;
            EXPECT_EQ(unused.received(fd), lines{}) << of_rtcp << v6;
        }
}

TEST_F(over_tcp, reports_are_understood_framed_and_bare_on_either_connection) {
    connect(rtp, rtcp);
    tested.set_call_id(str("id"));
    tcp_stream const media = rtp.accept(), reports = rtcp.accept();
    std::string const report = from_hex("80C9 0001 AAAA0001 81CA 0002 AAAA0001 01020000");
    std::string const stun = from_hex("0001 0000 2112A442 0102030405060708090A0B0C");
    std::string const copy =
        element_of(14, short_element(4, 1) + element_of(22, "id") + element_of(9, report));
    auto const handed_up = [](tcp_listener const& far, std::string const& data) {
        return element_of(
            15, short_element(4, 1) +
                    element_of(5, be16(static_cast<unsigned>(far.address().port)) + from_hex("7F000001")) +
                    data);
    };
    std::string const mark = short_element(34, 1);
    struct {
        bool on_rtcp;
        std::string sent, reported;
    } const table[] = {
        {false, framed(report), copy},
        {true, framed(report), copy},
        {false, report, copy},
        {true, report, copy},
        {true, stun, handed_up(rtcp, element_of(14, stun))},
        {true, framed(stun), handed_up(rtcp, element_of(14, framed(stun)) + mark)},
        {false, framed(stun), handed_up(rtp, element_of(13, framed(stun)) + mark)},
    };
    for (auto const& row : table) {
        (row.on_rtcp ? reports : media).send(row.sent);
        row.on_rtcp ? process_rtcp() : process_rtp();
        EXPECT_EQ(peer.reports(), lines{row.reported}) << &row - table;
    }
}

}  // namespace
