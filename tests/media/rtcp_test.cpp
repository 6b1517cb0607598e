#include <ctime>
#include <string>
#include <vector>

#include <poll.h>

#include <gtest/gtest.h>

#include "media/channel.h"
#include "media/rtcp_packet.h"
#include "srtp/aes_tables.h"
#include "tests/media/tshark.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/support/bytes.h"
#include "tests/support/manual_clock.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"

namespace {

using lines = std::vector<std::string>;

bool const tables_ready = (aes_compute_tables(), true);

constexpr char sdes[] = "81CA000311223344010456454C4B0000";
constexpr char all_blocks[] = "pkt-loss-rle pkt-dup-rle pkt-rcpt-times rcvr-rtt stat-summary voip-metrics";

std::string hex(std::string_view text) {
    return to_hex(from_hex(text));
}

/// Channel 4, open, with an SSRC; reports go to `far`, time stands still.
class rtcp_channel : public media_fixture {
protected:
    rtcp_channel() : media_fixture(-1), clock(4242), tested(channels[4]) { start(); }
    void start() {
        tested.init();
        tested.open(20000, 40000, 0);
        tested.set_codec(0, 0, -1, to_str(std::string(128, '\0')), 10);
        tested.set_ssrc(to_str(from_hex("11223344")));
        tested.set_destination(ip_port(), far.address(), false);
    }
    lines sent() { return far.received(tested.get_fd_rtcp4()); }
    /// The one compound packet of a report, in hex.
    std::string report() {
        tested.send_rtcp_sr();
        lines const all = sent();
        EXPECT_EQ(all.size(), 1u);
        return to_hex(all.at(0));
    }
    void receive_rtp(int sequence, std::uint32_t ssrc = 0xAAAA0001, int late_ms = 0) {
        rtp_packet packet;
        packet.sequence = static_cast<std::uint16_t>(sequence);
        packet.ssrc = ssrc;
        packet.timestamp = static_cast<std::uint32_t>(sequence) * 80;
        packet.payload = pcm_of(1);
        tested.process_rtp_data(to_str(packet.build()), peer_at(1), false,
                                rtimestamp((sequence * 10LL + late_ms) * 1000000));
    }
    static ip_port peer_at(int port) { return ip_port(str(127, 0, 0, 1), port); }
    void receive_rtcp(std::string_view bytes, int port = 7, bool tcp = false) {
        tested.process_rtcp(to_str(bytes), peer_at(port), tcp, rtimestamp::now());
    }
    static std::string copy_of(std::string const& packet, int direction) {
        return element_of(14, short_element(4, 4) + element_of(22, "id") + element_of(direction, packet));
    }

    /// NTP time of now and the fields up to the octet count, of a channel that has sent nothing.
    static std::string ntp_now() {
        auto const ms = static_cast<std::uint64_t>(rtimestamp::now().diff_ticks(rtimestamp())) / 1000000;
        return to_hex(be32(static_cast<std::uint32_t>(ms / 1000 + 2208988800u + ntp_timediff)) +
                      be32(static_cast<std::uint32_t>(ms % 1000 * 4294967)));
    }
    static constexpr char none_sent[] = "000000000000000000000000";

    manual_clock clock;
    channel& tested;
    udp_peer far;
};

TEST(rtcp_packets, length_field_and_padding_for_every_length) {
    EXPECT_TRUE(rtcp::get_rtcp_packet(str()).empty());
    EXPECT_TRUE(rtcp::get_sdes_packet(str()).empty());
    struct {
        char const* plain;
        char const* padded;
        char const* filled;
    } const table[] = {
        {"80CF0000", "80CF0000", "80CF0000"},
        {"80CF0000 01", "A0CF0001 01000003", "80CF0001 01000000"},
        {"80CF0000 0102", "A0CF0001 01020002", "80CF0001 01020000"},
        {"80CF0000 010203", "A0CF0001 01020301", "80CF0001 01020300"},
        {"81CF9999 01020304", "81CF0001 01020304", "81CF0001 01020304"},
    };
    for (auto const& [plain, padded, filled] : table) {
        EXPECT_EQ(to_hex(to_string(rtcp::get_rtcp_packet(to_str(from_hex(plain))))), hex(padded));
        EXPECT_EQ(to_hex(to_string(rtcp::get_sdes_packet(to_str(from_hex(plain))))), hex(filled));
    }
    str const longest = rtcp::get_rtcp_packet(str('\x80', 4 * 0x1234 + 1));
    EXPECT_EQ(to_hex(to_string(longest.leftstr(4))), "A0801234");
    EXPECT_EQ(rtcp::fraction_lost(3, 97), 7);
    EXPECT_EQ(rtcp::fraction_lost(5, -5), 0);
    EXPECT_EQ(rtcp::fraction_lost(300, 0), 255);
    EXPECT_EQ(rtcp::fraction_lost(0x7FFFFF, 0x7FFFFF), 128);
}

TEST_F(rtcp_channel, reports_byte_for_byte) {
    ntp_timediff = 0x87654321;
    EXPECT_EQ(report(), "81C8000811223344" + ntp_now() + none_sent + "0000000000000000" + sdes);
    ntp_timediff = 0;
    clock.advance(99);
    receive_rtp(1000);
    std::string const extended_header = "80CF000111223344";
    EXPECT_EQ(report(), "81C8000C11223344" + ntp_now() + none_sent +
                            hex("AAAA0001 00000000 000003E8 00000000") + "0000000000000000" + sdes +
                            extended_header);
    receive_rtp(1001);
    receive_rtp(1002, 0xAAAA0001, 20);
    receive_rtp(900);  // late, and stepped back: followed
    receive_rtcp(from_hex("80C8 0006 AAAA0001 0102030405060708 00000000 00000000 00000000"));
    clock.advance_ms(1500);
    EXPECT_EQ(report(), "81C8000C11223344" + ntp_now() + none_sent +
                            hex("AAAA0001 00000000 000003EA 0000000A") + hex("03040506 00018000") + sdes +
                            extended_header);
    EXPECT_EQ(report(), "81C8000C11223344" + ntp_now() + none_sent +
                            hex("AAAA0001 00000000 000003EA 00000000") + hex("03040506 00018000") + sdes)
        << "nothing was monitored since the last report";
    clock.advance_ms(40000);
    EXPECT_EQ(get_be32(from_hex(report()), 48), 4293392073u) << "41.5 s: (2719744000 - 2^32) / 1000";
}

TEST_F(rtcp_channel, the_highest_sequence_number_is_that_of_the_current_stream) {
    auto const highest = [&] { return get_be32(from_hex(report()), 36); };
    for (int const seq : {65000, 65535, 0, 1, 65534})
        receive_rtp(seq);
    EXPECT_EQ(highest(), 0x10001u);
    clock.advance(100);
    receive_rtp(70000 + 500, 0xBBBB0002);
    EXPECT_EQ(highest() & 0xFFFF, 70500u - 65536);
}

TEST_F(rtcp_channel, rhythm) {
    rtimestamp const opened = rtimestamp::now();
    start();
    tested.set_call_id(str("id"));
    std::vector<int> at_ms;
    while (rtimestamp::now().diff_ms(opened) < 9000) {
        clock.advance_ms(static_cast<unsigned>(timeout_queue::global_queue.delay(true)));
        timeout_queue::global_queue.next();
        at_ms.insert(at_ms.end(), peer.reports().size(), rtimestamp::now().diff_ms(opened));
    }
    EXPECT_EQ(at_ms, (std::vector<int>{100, 2100, 4100, 6100, 8100, 10100}));
    EXPECT_EQ(timeout_queue::global_queue.size(), 1);
    tested.init();
    EXPECT_TRUE(timeout_queue::global_queue.empty());
}

TEST_F(rtcp_channel, what_is_received) {
    std::string const block = "11223344 00000000 00000000 00000000 00000000 00000000";
    std::string const other_block = "99999999 00000000 00000000 00000000 00000000 00000000";
    std::string const sr = "AAAA0001 0102030405060708 00000000 00010000 00000000";  // packet count 65536
    std::string const rrtr = "AAAA0001 04000002 1112131415161718";
    struct {
        char const* what;
        std::string packet;
        char const* last_sr;
        unsigned delay_ms;
        char const* last_rr;  // "": no answer
    } const table[] = {
        {"report on us", "81C8 000C" + sr + block, "03040506", 1000, ""},
        {"a delay is rounded", "81C8 000C AAAA0001 0102030405060708 00000000 00000021 00000000" + block,
         "03040506", 1, ""},
        {"a delay wraps", "81C8 000C AAAA0001 0102030405060708 00000000 00420000 00000000" + block,
         "03040506", 464, ""},
        {"on us in the second block, whatever the count says", "80C8 0012" + sr + other_block + block,
         "03040506", 1000, ""},
        {"length field without the block", "81C8 0006" + sr + block, "03040506", 0, ""},
        {"receiver report and an extended one", "80C9 0001 AAAA0001 80CF 0004" + rrtr, "00000000", 0,
         "13141516"},
        {"extended, then sender report", "80CF 0004" + rrtr + "81C8 000C" + sr + block, "03040506", 1000,
         "13141516"},
        {"length field beyond the end", "81C8 FFFF" + sr + block, "03040506", 1000, ""},
        {"cut within the time", "80C8 0006 AAAA0001 01020304", "03040000", 0, ""},
        {"a walk of zero words", "80C8 0000 80C8 0000 80C8 0006" + sr, "03040506", 0, ""},
        {"no version is asked for", "02C8 0006" + sr, "03040506", 0, ""},
    };
    for (auto const& [what, packet, last_sr, delay_ms, last_rr] : table) {
        start();
        tested.set_rtcp_xr(to_str("rcvr-rtt voip-metrics"));
        receive_rtcp(from_hex(packet));
        receive_rtp(1);
        std::string const sent_report = report();
        EXPECT_EQ(sent_report.substr(0, 8), "81C8000C") << what;
        EXPECT_EQ(sent_report.substr(88, 8), last_sr) << what;
        ASSERT_EQ(sent_report.size() / 2, 52u + 16 + 8 + 36 + 12 + (*last_rr ? 16 : 0)) << what;
        EXPECT_EQ(get_be16(from_hex(sent_report), 52 + 16 + 8 + 16), delay_ms) << what;
        if (*last_rr) {
            EXPECT_EQ(sent_report.substr(2 * (52 + 16 + 8 + 36 + 12 + 8), 8), last_rr) << what;
        }
    }
}

TEST_F(rtcp_channel, only_the_first_sender_is_listened_to) {
    tested.set_call_id(str("id"));
    std::string const packet = from_hex("80C9 0001 AAAA0001");
    struct {
        int port;
        bool tcp, copied;
    } const table[] = {{8, true, true},  // over TCP everybody is, and nobody latched
                       {7, false, true},
                       {8, false, false},
                       {7, false, true},
                       {8, true, true}};
    for (auto const& [port, tcp, copied] : table) {
        receive_rtcp(packet, port, tcp);
        EXPECT_EQ(peer.reports(), copied ? lines{copy_of(packet, 9)} : lines{}) << port << tcp;
    }
    tested.set_call_id(str());
    receive_rtcp(packet, 7);
    tested.send_rtcp_sr();
    EXPECT_EQ(peer.reports(), lines{}) << "no copies without a call";
}

TEST_F(rtcp_channel, a_bye_answers_what_was_received_once) {
    constexpr char const* expected[] = {"A1CB00021122334400000003", "A1CB00021122334401610002",
                                        "A1CB00021122334402616101", "81CB00021122334403616161",
                                        "A1CB0003112233440461616161000003"};
    tested.set_call_id(str("id"));
    for (int n = 0; n < 5; n++) {
        tested.send_rtcp_bye(str('a', n));
        EXPECT_EQ(sent(), lines{});
        receive_rtcp(from_hex("80C9 0001 AAAA0001"));
        peer.reports();
        tested.send_rtcp_bye(str('a', n));
        tested.send_rtcp_bye(str('a', n));
        EXPECT_EQ(sent(), lines{from_hex(expected[n])}) << n;
        EXPECT_EQ(peer.reports(), lines{copy_of(from_hex(expected[n]), 10)});
    }
    receive_rtcp(from_hex("80C9 0001 AAAA0001"));
    tested.send_rtcp_bye(str('a', 260));
    EXPECT_EQ(sent().at(0).substr(8, 2),
              "\x04"
              "a")
        << "low 8 bits of the reason's length";
}

long long wall_us() {
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return t.tv_sec * 1000000LL + t.tv_nsec / 1000;
}

// The stamp of a report that waited in the socket is as old as the wait, on a clock that has nothing to do with it.
TEST_F(rtcp_channel, the_delay_counts_from_the_arrival_in_the_kernel) {
    for (bool const v6 : {false, true}) {
        start();
        receive_rtp(1);
        udp_peer sender(v6);
        ip_port to = sender.address();
        to.port = tested.get_rtcp_port();
        long long const before = wall_us();
        sender.send(to, from_hex("80C8 0006 AAAA0001 0102030405060708 00000000 00000000 00000000"));
        long long const arrived = wall_us();
        poll(nullptr, 0, 70);
        long long const read = wall_us();
        v6 ? tested.process_rtcp6() : tested.process_rtcp4();
        long long const done = wall_us();
        clock.advance_ms(500);
        std::string const sent_report = from_hex(report());
        EXPECT_EQ(get_be32(sent_report, 44), 0x03040506u);
        long long const delay_us = get_be32(sent_report, 48) * 1000000LL / 65536;
        EXPECT_GE(delay_us, 500000 + (read - arrived) - 2000);
        EXPECT_LE(delay_us, 500000 + (done - before) + 2000);
    }
}

class protected_rtcp : public rtcp_channel {
protected:
    protected_rtcp() : own(to_str(std::string(30, '\x11'))), theirs(to_str(std::string(30, '\x22'))) {}
    void key(std::string const& mki, int tag_length = 4) {
        tested.set_srtp(theirs, own, tag_length, to_str(mki));
        tested.set_call_id(str("id"));
        peer.datagrams();
    }
    /// The last report before it was protected, from its copy.
    std::string sent_plain() {
        return control_peer::elements(control_peer::elements(peer.reports().back())[0].second)[2].second;
    }
    str const own, theirs;
};

TEST_F(protected_rtcp, a_peer_understands_every_report_until_the_index_wraps) {
    for (std::string const mki : {"", "KEY7"}) {
        start();
        key(mki);
        libsrtp_peer far_end(libsrtp_peer::receives, own, 10, to_str(mki));
        int const count = mki.empty() ? 65536 + 3 : 100;
        receive_rtp(1);
        for (int i = 0; i < count; i++) {
            tested.send_rtcp_sr();
            if (i % 500 && i < count - 5)
                continue;
            std::string const plain = sent_plain();
            std::string const datagram = far.received(tested.get_fd_rtcp4()).back();
            str packet = to_str(datagram);
            unsigned const index = static_cast<unsigned>(i) % 65536;
            ASSERT_EQ(to_hex(datagram.substr(0, 8)), to_hex(plain.substr(0, 8)));
            ASSERT_EQ(get_be32(datagram, plain.size()), 0x80000000 | index);
            ASSERT_EQ(datagram.size(), plain.size() + 4 + mki.size() + 10);
            ASSERT_EQ(datagram.substr(plain.size() + 4, mki.size()), mki);
            ASSERT_EQ(far_end.unprotect_rtcp(packet), i < 65536)
                << i << " (a peer with a replay list stops there)";
            packet = to_str(datagram);
            libsrtp_peer fresh(libsrtp_peer::receives, own, 10, to_str(mki));
            ASSERT_TRUE(fresh.unprotect_rtcp(packet)) << i;
            ASSERT_EQ(to_hex(to_string(packet)), to_hex(plain));
        }
    }
}

TEST_F(protected_rtcp, the_index_begins_anew_with_the_call_only) {
    for (unsigned const expected : {0, 1, 2, 0}) {
        if (expected == 0)
            start();
        key("");
        std::string const datagram = from_hex(report());
        EXPECT_EQ(get_be32(datagram, datagram.size() - 14), 0x80000000u + expected);
    }
    tested.set_srtp(theirs, str(), 10, str());
    EXPECT_EQ(report().substr(0, 8), "81C80008") << "a receive key alone does not protect what is sent";
}

// Whatever a peer protects is evaluated and copied as it arrived.
TEST_F(protected_rtcp, reports_are_looked_at_as_they_come) {
    key("", 10);
    libsrtp_peer far_end(libsrtp_peer::sends, theirs, 10, str());
    str packet = to_str(from_hex("80C8 0006 AAAA0001 0102030405060708 00000000 00000000 00000000"));
    ASSERT_TRUE(far_end.protect_rtcp(packet));
    receive_rtcp(to_string(packet));
    EXPECT_EQ(peer.reports(), lines{copy_of(to_string(packet), 9)});
    report();
    EXPECT_EQ(sent_plain().substr(28, 4), to_string(packet.substr(10, 4)));
}

TEST_F(rtcp_channel, an_analyser_finds_nothing_to_complain_about) {
    tested.set_rtcp_xr(to_str(all_blocks));
    receive_rtcp(
        from_hex("81C8 000C AAAA0001 0102030405060708 00000000 00010000 00000000"
                 "11223344 00000000 00000000 00000000 00000000 00000000"
                 "80CF 0004 AAAA0001 04000002 1112131415161718"));
    for (int seq = 500; seq < 560; seq++)
        if (seq % 17 && seq % 23)
            receive_rtp(seq, 0xAAAA0001, seq % 3);
    receive_rtp(530);
    clock.advance_ms(120);
    std::string const with_everything = from_hex(report());
    receive_rtp(560);
    std::string const more = from_hex(report());
    receive_rtcp(from_hex("80C9 0001 AAAA0001"));
    tested.send_rtcp_bye(str("bye"));
    std::string const bye = sent().at(0);
    EXPECT_EQ(tshark::rtcp_fields({with_everything, more, bye},
                                  {"rtcp.pt", "rtcp.xr.bt", "rtcp.xr.bl", "rtcp.ssrc.ext_high",
                                   "rtcp.ssrc.dlsr", "rtcp.sdes.text", "rtcp.xr.dlrr", "rtcp.length_check"}),
              (lines{
                  "200,202,207|1,2,3,6,7,4,5|4,4,62,9,8,2,3|559|7864|VELK|234|1",
                  "200,202,207|1,2,3,6,7,4|3,3,3,9,8,2|560|7864|VELK||1",
                  "203|||||bye||1",
              }));
}

}  // namespace
