#include <cstdio>
#include <ctime>

#include <poll.h>

#include "lib/protocol.h"
#include "media/e_model.h"
#include "media/rtcp_packet.h"
#include "media/rtcp_xr.h"
#include "srtp/aes.h"
#include "tests/srtp/libsrtp_peer.h"
#include "tests/support/manual_clock.h"
#include "tests/support/media_fixture.h"
#include "tests/support/seed.h"

namespace {

bool const tables_ready = (aes_compute_tables(), true);

constexpr char sdes[] = "81CA000311223344010456454C4B0000";
constexpr char all_blocks[] = "pkt-loss-rle pkt-dup-rle pkt-rcpt-times rcvr-rtt stat-summary voip-metrics";
std::string const empty_report = from_hex("80C9 0001 AAAA0001");
std::string const sender_report = from_hex("80C8 0006 AAAA0001 0102030405060708 00000000 00000000 00000000");

/// Channel 4, open, with an SSRC; reports go to `far`, time stands still.
class rtcp_channel : public media_fixture {
protected:
    rtcp_channel() : clock(4242), tested(channels[4]) { start(); }
    void start() {
        begin_call(tested);
        tested.open(20000, 40000, 0);
        tested.set_destination(ip_port(), far.address(), false);
        tested.set_call_id(str("id"));
        peer.reports();
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
        tested.process_rtp_data(to_str(named_packet(sequence, 1, ssrc).build()), peer_at(1), false,
                                rtimestamp((sequence * 10LL + late_ms) * 1000000));
    }
    static ip_port peer_at(int port) { return ip_port(str(127, 0, 0, 1), port); }
    /// What call control gets of it.
    lines receive_rtcp(std::string_view bytes, int port = 7, bool tcp = false) {
        peer.reports();
        tested.process_rtcp(to_str(bytes), peer_at(port), tcp, rtimestamp::now());
        return peer.reports();
    }
    static std::string copy_of(std::string const& packet, int direction) {
        return element_of(14, short_element(4, 4) + element_of(22, "id") + element_of(direction, packet));
    }
    /// A report of a channel that has sent nothing: `head`, the time, the block, SDES, the header of an extended one.
    static std::string expected(char const* head, std::string const& block, char const* extended = "") {
        auto const ms = static_cast<std::uint64_t>(rtimestamp::now().diff_ticks(rtimestamp())) / 1000000;
        return unspaced(head +
                        to_hex(be32(static_cast<std::uint32_t>(ms / 1000 + 2208988800u + ntp_timediff)) +
                               be32(static_cast<std::uint32_t>(ms % 1000 * 4294967))) +
                        std::string(24, '0') + block + sdes + extended);
    }

    manual_clock clock;
    channel& tested;
    udp_peer far;
};

TEST(rtcp_packets, length_field_and_padding) {
    EXPECT_TRUE(rtcp::get_rtcp_packet(str()).empty());
    EXPECT_TRUE(rtcp::get_sdes_packet(str()).empty());
    EXPECT_EQ(to_hex(to_string(rtcp::get_sdes_packet(to_str(from_hex("81CF999901020304"))))), "81CF000101020304");
    EXPECT_EQ(to_hex(to_string(rtcp::get_sdes_packet(to_str(from_hex("80CF000001"))))), "80CF000101000000");
    str const longest = rtcp::get_rtcp_packet(str('\x80', 4 * 0x1234 + 1));
    EXPECT_EQ(to_hex(to_string(longest.leftstr(4))), "A0801234");
    EXPECT_EQ(rtcp::fraction_lost(3, 97), 7);
    EXPECT_EQ(rtcp::fraction_lost(5, -5), 0);
    EXPECT_EQ(rtcp::fraction_lost(300, 0), 255);
    EXPECT_EQ(rtcp::fraction_lost(0x7FFFFF, 0x7FFFFF), 128);
}

TEST_F(rtcp_channel, reports_byte_for_byte) {
    ntp_timediff = 0x87654321;
    EXPECT_EQ(report(), expected("81C80008 11223344", "0000000000000000"));
    ntp_timediff = 0;
    clock.advance(99);
    receive_rtp(1000);
    constexpr char head[] = "81C8000C 11223344", monitored[] = "80CF0001 11223344";
    EXPECT_EQ(report(), expected(head, "AAAA0001 00000000 000003E8 00000000 00000000 00000000", monitored));
    receive_rtp(1001);
    receive_rtp(1002, 0xAAAA0001, 20);
    receive_rtp(900);  // late, and stepped back: followed
    receive_rtcp(sender_report);
    clock.advance_ms(1500);
    EXPECT_EQ(report(), expected(head, "AAAA0001 00000000 000003EA 0000000A 03040506 00018000", monitored));
    EXPECT_EQ(report(), expected(head, "AAAA0001 00000000 000003EA 00000000 03040506 00018000"))
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
    receive_rtp(50000, 0xBBBB0002);
    EXPECT_EQ(highest(), 50000u) << "of another stream, below the old one";
    start();
    receive_rtp(2);
    receive_rtp(65535);  // below cycle 0
    EXPECT_EQ(highest(), 2u);
    receive_rtp(3);
    EXPECT_EQ(highest(), 3u);
}

TEST_F(rtcp_channel, what_is_received) {
    std::string const zeros(40, '0'), block = "11223344" + zeros, other_block = "99999999" + zeros;
    std::string const from = "AAAA0001 0102030405060708 00000000";
    std::string const sr = from + "00010000 00000000";  // packet count 65536
    std::string const time = "04000002 1112131415161718", rrtr = "AAAA0001" + time;
    struct {
        char const* what;
        std::string packet;
        char const* last_sr;
        unsigned delay_ms;
        char const* last_rr;  // "": no answer
    } const table[] = {
        {"report on us", "81C8 000C" + sr + block, "03040506", 1000, ""},
        {"a delay is rounded", "81C8 000C" + from + "00000021 00000000" + block, "03040506", 1, ""},
        {"a delay wraps", "81C8 000C" + from + "00420000 00000000" + block, "03040506", 464, ""},
        {"on us in the second block, whatever the count says", "80C8 0012" + sr + other_block + block, "03040506", 1000,
         ""},
        {"length field without the block", "81C8 0006" + sr + block, "03040506", 0, ""},
        {"receiver report and an extended one", "80C9 0001 AAAA0001 80CF 0004" + rrtr, "00000000", 0, "13141516"},
        {"extended, then sender report", "80CF 0004" + rrtr + "81C8 000C" + sr + block, "03040506", 1000, "13141516"},
        {"length field beyond the end", "81C8 FFFF" + sr + block, "03040506", 1000, ""},
        {"cut within the time", "80C8 0006 AAAA0001 01020304", "03040000", 0, ""},
        {"a walk of zero words", "80C8 0000 80C8 0000 80C8 0006" + sr, "03040506", 0, ""},
        {"four bytes at the end are not read", "80C8 0006" + sr + "80C8 0000", "03040506", 0, ""},
        {"no version is asked for", "02C8 0006" + sr, "03040506", 0, ""},
        {"a time cut in the middle", "80CF 0004 AAAA0001 04000002 0102030405", "00000000", 0, ""},
        {"behind a complete one", "80CF 0007" + rrtr + "04000002 0102030405", "00000000", 0, "13141516"},
        {"behind an unknown block", "80CF 0006 AAAA0001 63000001 FFFFFFFF" + time, "00000000", 0, "13141516"},
        {"behind an impossible length", "80CF 0006 AAAA0001 63000009 FFFFFFFF" + time, "00000000", 0, ""},
        {"length 0 does not stop the walk", "80CF 0005 AAAA0001 63000000" + time, "00000000", 0, "13141516"},
    };
    constexpr std::size_t metrics = 52 + 16 + 8, dlrr = metrics + 36 + 12;
    for (auto const& [what, packet, last_sr, delay_ms, last_rr] : table) {
        start();
        tested.set_rtcp_xr(to_str("rcvr-rtt voip-metrics"));
        receive_rtcp(from_hex(packet));
        receive_rtp(1);
        std::string const bytes = from_hex(report());
        EXPECT_EQ(to_hex(bytes.substr(44, 4)), last_sr) << what;
        ASSERT_EQ(bytes.size(), dlrr + (*last_rr ? 16 : 0)) << what;
        EXPECT_EQ(get_be16(bytes, metrics + 16), delay_ms) << what;
        EXPECT_EQ(*last_rr ? to_hex(bytes.substr(dlrr + 8, 4)) : "", last_rr) << what;
    }
}

TEST_F(rtcp_channel, only_the_first_sender_is_listened_to) {
    constexpr int table[][3] = {// port, TCP (everybody is, and nobody latched), copied
                                {8, 1, 1},
                                {7, 0, 1},
                                {8, 0, 0},
                                {7, 0, 1},
                                {8, 1, 1}};
    for (auto const& [port, tcp, copied] : table)
        EXPECT_EQ(receive_rtcp(empty_report, port, tcp), copied ? lines{copy_of(empty_report, 9)} : lines{})
            << port << tcp;
    tested.set_call_id(str());
    EXPECT_EQ(receive_rtcp(empty_report, 7), lines{}) << "no copies without a call";
    tested.send_rtcp_sr();
    EXPECT_EQ(peer.reports(), lines{});
}

TEST_F(rtcp_channel, a_bye_answers_what_was_received_once) {
    constexpr char const* expected[] = {"A1CB00021122334400000003", "A1CB00021122334401610002",
                                        "A1CB00021122334402616101", "81CB00021122334403616161",
                                        "A1CB0003112233440461616161000003"};
    for (int n = 0; n < 5; n++) {
        tested.send_rtcp_bye(str('a', n));
        EXPECT_EQ(sent(), lines{});
        receive_rtcp(empty_report);
        tested.send_rtcp_bye(str('a', n));
        tested.send_rtcp_bye(str('a', n));
        EXPECT_EQ(sent(), lines{from_hex(expected[n])}) << n;
        EXPECT_EQ(peer.reports(), lines{copy_of(from_hex(expected[n]), 10)});
    }
    receive_rtcp(empty_report);
    tested.send_rtcp_bye(str('a', 260));
    EXPECT_EQ(to_hex(sent().at(0).substr(8, 2)), "0461") << "low 8 bits of the reason's length";
}

long long wall_us() {
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return t.tv_sec * 1000000LL + t.tv_nsec / 1000;
}

// The stamp of a report that waited in the socket is as old as the wait, on a clock that has nothing to do with it. The
// kernel begins to stamp a while after the first socket has asked for it, so the first reports may not show it.
TEST_F(rtcp_channel, the_delay_counts_from_the_arrival_in_the_kernel) {
    for (bool const v6 : {false, true}) {
        start();
        receive_rtp(1);
        udp_peer sender(v6);
        bool counted = false;
        long long waited_us = 0;
        for (int tries = 0; tries < 20 && !counted; tries++) {
            long long const before = wall_us();
            sender.send(ip_port(sender.address().address, tested.get_rtcp_port()), sender_report);
            long long const arrived = wall_us();
            poll(nullptr, 0, 70);
            long long const read = wall_us();
            v6 ? tested.process_rtcp6() : tested.process_rtcp4();
            long long const done = wall_us();
            clock.advance_ms(500);
            waited_us = get_be32(from_hex(report()), 48) * 1000000LL / 65536 - 500000;
            counted = waited_us >= read - arrived - 2000 && waited_us <= done - before + 2000;
        }
        EXPECT_TRUE(counted) << waited_us;
    }
}

// Bit by bit these would take minutes.
TEST(rtcp_xr, jumps_over_billions_of_numbers_cost_nothing) {
    constexpr int lowest = -0x7FFFFFFF - 1, highest = 0x7FFFFFFF, far = 0x20000000;
    rtcp_xr xr;
    auto const report = [&] { return to_hex(to_string(xr.get_packet(str("REMO"), str("LOCA"), 0))); };
    xr.set_mode(to_str("pkt-loss-rle=400000 pkt-dup-rle=20 voip-metrics"));
    xr.monitor(5, 800, 800);
    report();
    xr.monitor(far, 160, 808);
    constexpr unsigned zeros = far - 6, full_runs = (zeros - 1) / 16383, words = (full_runs + 3) / 2 + 2;
    std::string const packet = report();
    EXPECT_EQ(packet.substr(16, 32), "0100" + to_hex(be16(words)) + to_hex("REMO") + unspaced("0005 0001 3FFF 3FFF"));
    EXPECT_EQ(packet.substr(16 + 8 * (words + 1)).substr(0, 32),
              "07000008" + to_hex("REMO") + unspaced("FF00FF00 0001 0000"))
        << "the duplicate block fits no thinning";
    for (int i = 0; i < 300; i++) {
        xr.monitor_jitter_buffer_size(highest);
        xr.monitor(i % 2 ? highest : lowest, i % 3 ? lowest : i, i % 5 ? highest : -highest);
        xr.calculate_jitter();
        report();
    }
}

class protected_rtcp : public rtcp_channel {
protected:
    void key(std::string const& mki = "", int tag_length = 4) {
        tested.set_srtp(theirs, own, tag_length, to_str(mki));
        peer.datagrams();
    }
    /// The last report before it was protected, from its copy.
    std::string sent_plain() {
        return control_peer::elements(control_peer::elements(peer.reports().back())[0].second)[2].second;
    }
    str const own = str('\x11', 30), theirs = str('\x22', 30);
};

TEST_F(protected_rtcp, a_peer_understands_every_report_and_the_index_wraps) {
    for (std::string const mki : {"", "KEY7"}) {
        start();
        key(mki);
        int const count = mki.empty() ? 65536 + 3 : 100;
        receive_rtp(1);
        for (int i = 0; i < count; i++) {
            tested.send_rtcp_sr();
            if (i % 500 && i < count - 5)
                continue;
            std::string const plain = sent_plain(), datagram = sent().back();
            str packet = to_str(datagram);
            ASSERT_EQ(get_be32(datagram, plain.size()), 0x80000000 | static_cast<unsigned>(i) % 65536);
            ASSERT_EQ(datagram.substr(plain.size() + 4, datagram.size() - plain.size() - 14), mki);
            libsrtp_peer fresh(libsrtp_peer::receives, own, 10, to_str(mki));
            ASSERT_TRUE(fresh.unprotect_rtcp(packet)) << i;
            ASSERT_EQ(to_hex(to_string(packet)), to_hex(plain));
        }
    }
}

TEST_F(protected_rtcp, the_index_begins_anew_with_the_call_only) {
    for (unsigned const expected : {0u, 1u, 2u, 0u}) {
        if (expected == 0)
            start();
        key();
        std::string const datagram = from_hex(report());
        EXPECT_EQ(get_be32(datagram, datagram.size() - 14), 0x80000000u + expected);
    }
    tested.set_srtp(theirs, str(), 10, str());
    EXPECT_EQ(report().substr(0, 8), "81C80008") << "a receive key alone does not protect what is sent";
}

// Whatever a peer protects is evaluated and copied as it arrived.
TEST_F(protected_rtcp, reports_are_looked_at_as_they_come) {
    key("", 10);
    str packet = to_str(sender_report);
    ASSERT_TRUE(libsrtp_peer(libsrtp_peer::sends, theirs, 10, str()).protect_rtcp(packet));
    EXPECT_EQ(receive_rtcp(to_string(packet)), lines{copy_of(to_string(packet), 9)});
    report();
    EXPECT_EQ(sent_plain().substr(28, 4), to_string(packet.substr(10, 4)));
}

/// What an independent analyser (Debian: tshark, which brings text2pcap) finds in compound packets: one line for each,
/// the values of the fields, several of one field separated by ",", at last its complaint if it has one.
std::string dissected(std::vector<std::string> const& packets) {
    std::string command = "printf '";
    for (std::string const& packet : packets) {
        command += "0000";
        for (char const byte : packet)
            command += ' ' + to_hex({&byte, 1});
        command += "\\n\\n";
    }
    command +=
        "' | text2pcap -q -F pcap -u 5005,5005 - - 2>/dev/null | tshark -r - -d udp.port==5005,rtcp -T "
        "fields "
        "-E separator='|' -e rtcp.pt -e rtcp.xr.bt -e rtcp.xr.bl -e rtcp.ssrc.ext_high -e rtcp.ssrc.dlsr "
        "-e rtcp.sdes.text -e rtcp.xr.dlrr -e rtcp.length_check -e _ws.expert.message 2>/dev/null";
    FILE* const output = popen(command.c_str(), "r");
    std::string fields(65536, 0);
    fields.resize(fread(fields.data(), 1, fields.size(), output));
    EXPECT_EQ(pclose(output), 0) << "needs tshark and text2pcap (scripts/install-packages test)";
    return fields;
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
    receive_rtcp(empty_report);
    tested.send_rtcp_bye(str("bye"));
    std::string const bye = sent().at(0);
    EXPECT_EQ(dissected({with_everything, more, bye}),
              "200,202,207|1,2,3,6,7,4,5|4,4,62,9,8,2,3|559|7864|VELK|234|1|\n"
              "200,202,207|1,2,3,6,7,4|3,3,3,9,8,2|560|7864|VELK||1|\n"
              "203|||||bye||1|\n");
}

// ---- exact reports

/// With the extension `rtcp`.
class exact_reports : public rtcp_channel {
protected:
    exact_reports() {
        extensions.rtcp = true;
        start();
    }
    ~exact_reports() override { extensions = extension_set(); }

    std::string bytes() { return from_hex(report()); }
    void send_packet() { tested.process_audio(to_str(pcm_of(1))); }
    static constexpr std::size_t in_block = 8;  // where the block of a receiver report begins
};

TEST_F(exact_reports, who_sends_and_who_only_listens) {
    EXPECT_EQ(report(), unspaced("80C90001 11223344") + sdes);
    send_packet();
    EXPECT_EQ(bytes().substr(0, 4), from_hex("80C80006")) << "sent since the last report";
    EXPECT_EQ(bytes().substr(0, 4), from_hex("80C80006")) << "or the one before";
    receive_rtp(1000);
    EXPECT_EQ(report(), unspaced("81C90007 11223344 AAAA0001 00000000 000003E8 00000000 00000000 00000000") + sdes)
        << "no extended report without blocks";
    tested.set_ssrc(str());
    tested.send_rtcp_sr();
    EXPECT_EQ(sent(), lines{});
}

// A list of all that was sent and came, by RFC 3550 appendix A.3.
TEST_F(exact_reports, losses_are_counted) {
    seed_range{51, 20}.roll([this](dice& random) {
        start();
        int sequence = random.below(65536), first = sequence, expected_before = 0, received_before = 0, received = 0;
        for (int period = 0; period < 8; period++) {
            int const loss = random.below(4) * 12;
            for (int i = random.below(400); i >= 0; i--, sequence++) {
                bool const lost = random.chance(loss) && sequence != first && i > 0;
                for (int copies = lost ? 0 : random.chance(2) ? 2 : 1; copies > 0; copies--, received++)
                    receive_rtp(sequence);
            }
            int const expected = sequence - first, lost = expected - received;
            int const in_period = lost - (expected_before - received_before);
            int const fraction = in_period > 0 ? std::min(in_period * 256 / (expected - expected_before), 255) : 0;
            expected_before = expected, received_before = received;
            std::string const block = bytes().substr(in_block, 24);
            ASSERT_EQ(to_hex(block.substr(4, 4)), to_hex(be32(static_cast<std::uint32_t>(fraction) << 24 |
                                                              (static_cast<std::uint32_t>(lost) & 0xFFFFFF))));
            ASSERT_EQ(get_be32(block, 8), static_cast<std::uint32_t>(sequence - 1 - first + first % 65536));
        }
    });
}

TEST_F(exact_reports, another_stream_and_a_sender_that_begins_anew_are_counted_afresh) {
    auto const lost = [&] { return get_be32(bytes(), in_block + 4); };
    for (int const seq : {100, 101, 105})
        receive_rtp(seq);
    EXPECT_EQ(lost(), 128u << 24 | 3u);
    EXPECT_EQ(lost(), 3u) << "none since";
    for (int const seq : {40001, 40002, 40003})
        receive_rtp(seq);
    EXPECT_EQ(lost(), 0u);
    clock.advance(100);
    receive_rtp(60000, 0xBBBB0002);
    receive_rtp(60004, 0xBBBB0002);
    EXPECT_EQ(lost(), 153u << 24 | 3u);
}

// The clock is moved by hand, and so the time of day looks as if somebody had set it.
TEST_F(exact_reports, nobody_disturbs_delays_by_setting_the_clock) {
    tested.set_rtcp_xr(to_str("voip-metrics"));
    receive_rtp(1);
    receive_rtcp(sender_report);
    clock.advance_ms(1500);
    send_packet();
    std::string const own = bytes();
    EXPECT_EQ(get_be32(own, 48), 0x18000u);
    clock.advance_ms(500);
    // They kept our report for 200 ms.
    std::string const block = "11223344" + std::string(24, '0') + to_hex(own.substr(10, 4)) + to_hex(be32(13107));
    receive_rtcp(from_hex("81C9 0007 AAAA0001" + block));
    receive_rtp(2);
    EXPECT_EQ(get_be16(bytes(), 52 + 16 + 8 + 16), 300u);
}

// Gmin and the definitions of RFC 3611 section 4.7.2, by the list of what came.
TEST_F(exact_reports, metrics_in_their_units) {
    tested.set_codec(protocol::codec_number::pcmu, 0, -1, to_str(std::string(128, '\1')), 20);
    tested.set_rtcp_xr(to_str("voip-metrics"));
    auto const metrics = [&] { return to_hex(bytes().substr(8 + 24 + 16 + 8 + 8)); };
    // 40 packets, a loss alone, 30 packets, a burst of 10 in which 4 are lost, 39 packets; each is 20 ms, one comes
    // every 10 ms, so that the buffer holds half of them.
    for (int seq = 1; seq <= 120; seq++) {
        bool talk_spurt = false;
        if (seq != 41 && seq != 72 && seq != 74 && seq != 75 && seq != 81)
            receive_rtp(seq);
        tested.get_samples(talk_spurt);
    }
    std::string const got = metrics();
    int const nominal = get_be16(from_hex(got), 22), largest = get_be16(from_hex(got), 24);
    EXPECT_TRUE(nominal > 400 && nominal < 800 && largest > 1000 && largest < 1400) << nominal << ", " << largest;
    int const rating = e_model::rating(protocol::codec_number::pcmu, 11, nominal);
    int const heard = e_model::opinion(e_model::rating(protocol::codec_number::pcmu, 11, 0));
    auto const octet = [](int value) { return to_hex(std::string(1, static_cast<char>(value))); };
    // 256 x 5 / 120 lost, none discarded; 4 of 10 and 1 of 110; 100 ms, 1100 / 2 ms
    EXPECT_EQ(got.substr(0, 44), unspaced("0B00 6602 0064 0226 0000 0000 7F7F 7F10") + octet((rating + 5) / 10) + "7F" +
                                     octet(heard) + octet(e_model::opinion(rating)) + "7000");
    EXPECT_EQ(got.substr(52), "0BB8");
}

TEST_F(exact_reports, a_new_destination_is_listened_to) {
    ASSERT_EQ(receive_rtcp(empty_report, 7).size(), 1u);
    EXPECT_EQ(receive_rtcp(empty_report, 8), lines{});
    tested.set_destination(ip_port(), far.address(), false);
    EXPECT_EQ(receive_rtcp(empty_report, 8), lines{}) << "the same as before";
    tested.set_destination(ip_port(), peer_at(8), false);
    EXPECT_EQ(receive_rtcp(empty_report, 8).size(), 1u);
    EXPECT_EQ(receive_rtcp(empty_report, 7), lines{});
}

TEST_F(exact_reports, encrypted_reports_are_read_in_the_clear) {
    str const own('\x11', 30), theirs('\x22', 30);
    tested.set_srtp(theirs, own, 10, str());
    libsrtp_peer sender(libsrtp_peer::sends, theirs), receiver(libsrtp_peer::receives, own);
    str packet = to_str(named_packet(5, 1).build()), compound = to_str(sender_report);
    ASSERT_TRUE(sender.protect(packet) && sender.protect_rtcp(compound));
    tested.process_rtp_data(packet, peer_at(1), false, rtimestamp());
    EXPECT_EQ(receive_rtcp(to_string(compound)), lines{copy_of(to_string(compound), 9)});
    str own_report = to_str(bytes());
    ASSERT_TRUE(receiver.unprotect_rtcp(own_report));
    EXPECT_EQ(to_hex(to_string(own_report.substr(24, 4))), "03040506");
}

}  // namespace
