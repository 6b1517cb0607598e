#include "control/commands.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "control/media_process.h"
#include "lib/datagram.h"
#include "lib/log.h"
#include "media/channel.h"
#include "media/ntp.h"
#include "tests/support/bytes.h"
#include "tests/support/media_fixture.h"
#include "tests/support/rtp_builder.h"
#include "tests/support/stepped_lines.h"
#include "tests/support/udp_peer.h"

namespace {

using lines = std::vector<std::string>;

std::string hex(std::string_view text) {
    return to_hex(from_hex(text));
}

class commands : public media_fixture {
protected:
    commands() : media_fixture(9) {}
    ~commands() override { command("0016 0006 001B 0002 0000"); }  // LED off: its timer goes

    void receive(std::string_view datagram) { on_command(to_str(datagram), peer.address()); }
    void command(std::string_view hex_text) { receive(from_hex(hex_text)); }
    /// What a command, given in hex, causes at call control.
    lines answer(std::string_view hex_text) {
        command(hex_text);
        return peer.transcript();
    }
    /// The channel's next packet of 10 ms of speech, as its far end receives it.
    rtp_packet next_packet(int call, udp_peer& far_end) {
        for (int i = 0; i < 100; i++) {
            channels[call].process_audio(to_str(pcm_of(3)));
            lines const datagrams = far_end.received(channels[call].get_fd_rtp4());
            if (!datagrams.empty())
                return rtp_packet::parse(datagrams[0]);
        }
        ADD_FAILURE() << "nothing is sent";
        return {};
    }
    static std::string address_element(int tag, ip_port const& endpoint) {
        return element_of(tag, be16(static_cast<unsigned>(endpoint.port)) + to_string(endpoint.address));
    }
    void send_media(std::string_view elements) { receive(element_of(17, elements)); }
    stepped_lines telephone;
};

TEST_F(commands, what_each_one_answers) {
    std::string const led_fails = "7 Failure to send command led call to driver";
    for (int i = 0; i < devmgr_count; i++)
        std::filesystem::rename(telephone.path(i), telephone.path(i + 5));  // no driver yet
    struct {
        char const* command;
        lines answer;
    } const table[] = {
        {"0004 0000", {"1 INVALID call index in CMD_END"}},
        {"0004 0006 0004 0002 0008", {"1 INVALID call index in CMD_END"}},
        {"0004 0006 0004 0002 FFFF", {"1 INVALID call index in CMD_END"}},
        {"0004 000C 0004 0002 0007 0015 0002 0001", {}},
        {"000A 000C 0004 0002 0008 0013 0002 0001", {}},
        {"000C 0000", {"0 No playback channel found"}},
        {"000C 0012 0004 0002 0000 001C 0002 0001 001D 0002 0001", {"7 Playback on channel 1"}},
        {"000C 0012 0004 0002 0000 001C 0002 0000 001D 0002 0000", {"7 Clear playback on channel 1"}},
        {"000C 0012 0004 0002 0000 001C 0002 0001 001D 0002 0100", {"7 Clear playback on channel 1"}},
        {"0010 0006 0004 0002 0009", {"1 Illegal port 9"}},
        {"0011 000C 0004 0002 0008 0006 0002 0802", {"7 Send codec local 2 remote 8"}},
        {"0011 000C 0004 0002 0000 0010 0002 0562", {"7 Map codec 5 to 98"}},
        {"0012 000C 0004 0002 0002 0012 0002 FFFF", {"7 Reset channel for call 3"}},
        {"0014 0000", {}},
        {"000B 0006 001B 0002 0003", {"5 reset base command 3", "7 Failure to send command to driver"}},
        {"0016 000C 001B 0002 0001 001B 0002 0000", {led_fails}},
        {"0016 0006 001B 0002 0000", {led_fails}},
        {"000F 000B 0004 0002 0008 000D 0001 41", {}},
        // no commands
        {"0000 0000", {}},
        {"0017 0000", {}},
        {"FFFF 0001 00", {}},
        // the later value wins; unknown elements are skipped; an incomplete last one is left out
        {"0004 000C 0004 0002 0001 0004 0002 0008", {"1 INVALID call index in CMD_END"}},
        {"0004 000D 0063 0003 AABBCC 0004 0002 0001", {}},
        {"0004 000B 0004 0002 0001 0004 0002 00", {}},
        // a short of another length: missing bytes are zero, more are not read
        {"0010 0005 0004 0001 09", {"1 Illegal port 2304"}},
        {"0010 0007 0004 0003 000906", {"1 Illegal port 9"}}};
    for (auto const& row : table) {
        lines all = answer(row.command);
        std::erase_if(all, [](std::string const& line) { return line.starts_with("7 Synth "); });
        EXPECT_EQ(all, row.answer) << row.command;
    }
}

TEST_F(commands, open_answers_with_the_ports) {
    lines const all = answer("0010 0018 0004 0002 0005 000B 0002 7530 000C 0002 9C40 0016 0002 6964");
    int const port = channels[5].get_rtp_port();
    ASSERT_TRUE(port >= 30000 && port < 40000) << port;
    auto const port_element = [](int tag, int n) {
        return to_hex(short_element(tag, static_cast<unsigned>(n)));
    };
    EXPECT_EQ(all.at(all.size() - 2),
              "7 Open RTP port " + std::to_string(port) + " and RTCP port " + std::to_string(port + 1));
    EXPECT_EQ(all.back(),
              hex("0006 0012 0004 0002 0005") + port_element(13, port) + port_element(14, port + 1));
    EXPECT_EQ(answer("0004 0006 0004 0002 0005"), lines{"8 Close call 6"}) << "it had a call identifier";
    EXPECT_EQ(answer("0010 0012 0004 0002 0005 000B 0002 7530 000C 0002 7530"),
              (lines{"7 Open RTP port 0 and RTCP port 0",
                     hex("0006 0012 0004 0002 0005 000D 0002 0000 000E 0002 0000")}));
    command("0010 0006 0004 0002 0005");
    EXPECT_GE(channels[5].get_rtp_port(), 49152) << "dynamic ports unless told otherwise";
}

TEST_F(commands, settings) {
    command("000D 0008 0014 0004 FFFFFFFE");
    EXPECT_EQ(ntp_timediff, 0xFFFFFFFEu);
    command("000D 0008 0014 0004 00000000");
    EXPECT_EQ(ntp_timediff, 0u);
    command("0007 0012 0001 0002 0007 0002 0002 0009 0001 0002 0003");
    EXPECT_EQ(log_level, 3);
    command("0007 0006 0001 0002 FFFF");
    EXPECT_EQ(log_level, 65535) << "shorts are unsigned";
}

TEST_F(commands, binding_to_a_line) {
    EXPECT_EQ(answer("0012 000C 0004 0002 0001 0012 0002 0003"),
              (lines{"6 Open " + telephone.path(3), "7 Set channel 4 for call 2"}));
    EXPECT_EQ(answer("0012 000C 0004 0002 0001 0012 0002 0004"),
              (lines{"6 Close " + telephone.path(3), "7 Reset channel for call 2"}));
    // Clearing a tone clears what the line has queued.
    command("0012 000C 0004 0002 0001 0012 0002 0003");
    peer.transcript();
    EXPECT_EQ(answer("000C 0006 0004 0002 0001"), (lines{"7 Clear playback on channel 2", "7 Clear Tx"}));
    EXPECT_EQ(answer("000B 0006 001B 0002 0003"),
              (lines{"5 reset base command 3", hex("000B 000C 001B 0002 0003 000F 0002 FFFF")}))
        << "a terminal refuses the driver's requests";
    EXPECT_EQ(answer("000B 0006 001B 0002 0002"), lines{"5 reset base command 2"});
}

TEST_F(commands, media_groups_are_applied_only_when_triggered) {
    udp_peer far_end, other_end;
    command("0010 0006 0004 0002 0001");
    send_media(short_element(4, 1) + element_of(6, from_hex("0B00")) + short_element(17, 10) +
               element_of(33, "SSRC") + address_element(5, far_end.address()));
    rtp_packet const first = next_packet(1, far_end);
    EXPECT_EQ(first.payload_type, 11);
    EXPECT_EQ(first.ssrc, 0x53535243u);
    EXPECT_EQ(first.payload.size(), 160u);

    send_media(short_element(4, 1) + address_element(5, other_end.address()));
    EXPECT_EQ(next_packet(1, other_end).ssrc, 0x53535243u) << "a destination leaves the codec alone";
    send_media(short_element(4, 1) + element_of(33, "ELSE") + short_element(34, 1));
    EXPECT_EQ(next_packet(1, other_end).ssrc, 0x53535243u) << "SSRC and TCP flag trigger nothing";
    send_media(short_element(4, 8) + short_element(17, 40));
    EXPECT_EQ(next_packet(1, other_end).payload.size(), 160u) << "another call";

    send_media(short_element(4, 1) + element_of(16, from_hex("0008")));
    rtp_packet const defaults = next_packet(1, other_end);
    EXPECT_EQ(defaults.payload_type, 0);
    EXPECT_EQ(defaults.payload.size(), 320u) << "20 ms";
    EXPECT_NE(defaults.ssrc, 0x53535243u) << "a fresh SSRC each time";
    send_media(short_element(4, 1) + short_element(17, 0));
    EXPECT_EQ(next_packet(1, other_end).payload.size(), 320u) << "0 keeps the packet time";

    send_media(short_element(4, 1) + address_element(26, far_end.address()));
    channels[1].process_audio(to_str(pcm_of(3, 8 * 80)));
    EXPECT_EQ(other_end.received(channels[1].get_fd_rtp4()).size(), 0u)
        << "an absent RTP destination is empty";
}

TEST_F(commands, of_two_data_elements_that_for_rtp_is_tunnelled) {
    udp_peer far_end;
    command("0010 0006 0004 0002 0002");
    receive(element_of(15, short_element(4, 2) + address_element(5, far_end.address()) +
                               element_of(14, "not this") + element_of(13, "RTP wins")));
    EXPECT_EQ(far_end.received(channels[2].get_fd_rtp4()), lines{"RTP wins"});
}

TEST_F(commands, strangers_are_not_obeyed_until_they_start_a_session) {
    udp_peer stranger;
    std::string const us = to_string(utils::readable_ip(peer.address()));
    std::string const them = to_string(utils::readable_ip(stranger.address()));
    for (char const* datagram : {"0004 0006 0004 0002 0008", "0000 0000", "0007 0006 0001 0002 0001"}) {
        on_command(to_str(from_hex(datagram)), stranger.address());
        EXPECT_EQ(peer.transcript(), lines{"8 Discard command for " + us + " from source " + them});
    }
    on_command(to_str(from_hex("0013 0003 616263")), stranger.address());
    EXPECT_EQ(peer.transcript(), lines{"5 Start session " + them}) << "still to the old peer";
    EXPECT_TRUE(control_adr == stranger.address());
    EXPECT_EQ(stranger.received(command_fd), lines{from_hex("00130000")});
    command("0004 0000");
    EXPECT_EQ(stranger.received(command_fd).size(), 1u) << "the old peer is discarded, the new one told";
    EXPECT_EQ(peer.transcript(), lines{});
    control_adr = peer.address();
}

TEST_F(commands, loopback_test_finds_its_pattern_in_what_comes_back) {
    std::string const pattern = "loopbacktest" + std::string(148, '\0'), noise(160, 'l');
    std::pair<std::string, int> const table[] = {
        {pattern, 1},
        {noise + noise + pattern, 3},
        {noise + std::string(148, 'x') + "loopbacktest", 2},
        {std::string(152, 'x') + "loopbacktest" + std::string(156, 'x') + pattern, 3},  // not across blocks
        {"loopbacktest", 1}};
    for (auto const& [comes_back, reads] : table) {
        telephone.say(0, comes_back);
        EXPECT_EQ(answer("0015 0000"), lines{hex("0015 0006 0009 0002 0001")}) << comes_back;
        std::string written;
        for (int i = 0; i <= reads; i++)
            written += pattern;
        EXPECT_TRUE(telephone.heard(0) == written) << comes_back;
    }
    std::filesystem::remove(telephone.path(0));
    std::filesystem::create_symlink("/dev/zero", telephone.path(0));
    EXPECT_EQ(answer("0015 0000"), lines{hex("0015 0006 0009 0002 0000")}) << "never";
    std::filesystem::remove(telephone.path(0));
    EXPECT_EQ(answer("0015 0000"), lines{hex("0015 0006 0009 0002 0000")}) << "no device";
}

}  // namespace
