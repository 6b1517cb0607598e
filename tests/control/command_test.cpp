#include "control/commands.h"

#include "control/options.h"
#include "control/sigchan.h"
#include "lib/extensions.h"
#include "tests/support/media_fixture.h"
#include "tests/support/stepped_lines.h"

namespace {

struct commands : media_fixture {
    commands() : media_fixture(9) {}

    void receive(std::string_view datagram) { on_command(to_str(datagram), peer.address()); }
    /// A command, given in hex, in two datagrams: what the first leaves open the second completes.
    void command(std::string_view hex_text) {
        std::string const bytes = from_hex(hex_text);
        receive(bytes.substr(0, 3));
        receive(bytes.substr(3));
    }
    /// What it causes at call control.
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
    static std::string address_element(int tag, udp_peer const& far_end) {
        ip_port const to = far_end.address();
        return element_of(tag, be16(static_cast<unsigned>(to.port)) + to_string(to.address));
    }
    void media(std::string const& fields) {
        receive(element_of(protocol::cmd_media::tag, from_hex("0004 0002 0001") + fields));
    }
    stepped_lines telephone;
};

TEST_F(commands, what_each_one_answers) {
    struct {
        char const* command;
        lines answer;
    } const table[] = {
        {"0004 0000", {"1 INVALID call index in CMD_END"}},
        {"0004 0006 0004 0002 0008", {"1 INVALID call index in CMD_END"}},
        {"000C 0000", {"0 No playback channel found"}},
        {"000C 0012 0004 0002 0000 001C 0002 0000 001D 0002 0000", {"7 Clear playback on channel 1"}},
        {"000C 0012 0004 0002 0000 001C 0002 0001 001D 0002 0100", {"7 Clear playback on channel 1"}},
        {"0010 0006 0004 0002 0009", {"1 Illegal port 9"}},
        {"0010 0012 0004 0002 0005 000B 0002 7530 000C 0002 7530",
         {"7 Open RTP port 0 and RTCP port 0", unspaced("0006 0012 0004 0002 0005 000D 0002 0000 000E 0002 0000")}},
        {"0011 000C 0004 0002 0008 0006 0002 0802", {"7 Send codec local 2 remote 8"}},
        {"0011 000C 0004 0002 0000 0010 0002 0562", {"7 Map codec 5 to 98"}},
        {"0012 000C 0004 0002 0002 0012 0002 FFFF", {"7 Reset channel for call 3"}},
        {"0012 000C 0004 0002 0001 0012 0002 0003", {"6 Open " + telephone.path(3), "7 Set channel 4 for call 2"}},
        {"000C 0006 0004 0002 0001", {"7 Clear playback on channel 2", "7 Clear Tx"}},
        {"0012 0006 0004 0002 0001", {"6 Close " + telephone.path(3), "7 Reset channel for call 2"}},
        {"0014 0000", {}},
        {"000F 000B 0004 0002 0008 000D 0001 41", {}},
        // no commands
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

TEST_F(commands, settings) {
    command("0007 0012 0001 0002 0007 0002 0002 0009 0001 0002 0003");
    EXPECT_EQ(log_level, 3);
    command("0007 0006 0001 0002 FFFF");
    EXPECT_EQ(log_level, 65535) << "shorts are unsigned";
    command("0010 0006 0004 0002 0005");
    EXPECT_GE(channels[5].get_rtp_port(), 49152) << "dynamic ports unless told otherwise";
}

TEST_F(commands, media_groups_are_applied_only_when_triggered) {
    udp_peer first, second;
    struct {
        char const* what;
        char const* fields;
        udp_peer* destination;
        int payload_type;
        bool same_ssrc;
        std::size_t bytes;
    } const table[] = {
        {"codec", "0006 0002 0B00 0011 0002 000A 0021 0004 53535243", &first, 11, true, 160},
        {"a destination leaves the codec alone", "", &second, 11, true, 160},
        {"SSRC and TCP trigger nothing", "0021 0004 454C5345 0022 0002 0001", nullptr, 11, true, 160},
        {"another call", "0011 0002 0028 0004 0002 0008", nullptr, 11, true, 160},
        {"defaults, a fresh SSRC", "0010 0002 0008", nullptr, 0, false, 320},
        {"packet time", "0011 0002 0028", nullptr, 0, false, 640},
        {"0 keeps the packet time", "0011 0002 0000", nullptr, 0, false, 640},
    };
    command("0010 0006 0004 0002 0001");
    udp_peer* far_end = nullptr;
    for (auto const& row : table) {
        far_end = row.destination != nullptr ? row.destination : far_end;
        media(from_hex(row.fields) +
              (row.destination != nullptr ? address_element(protocol::cmd_media::rtp_dest, *far_end) : ""));
        rtp_packet const packet = next_packet(1, *far_end);
        EXPECT_EQ(packet.payload_type, row.payload_type) << row.what;
        EXPECT_EQ(packet.ssrc == 0x53535243u, row.same_ssrc) << row.what;
        EXPECT_EQ(packet.payload.size(), row.bytes) << row.what;
    }
    media(address_element(protocol::cmd_media::rtcp_dest, first));
    channels[1].process_audio(to_str(pcm_of(3, 8 * 80)));
    EXPECT_EQ(second.received(channels[1].get_fd_rtp4()), lines{}) << "an absent RTP destination is empty";
}

TEST_F(commands, of_two_data_elements_that_for_rtp_is_tunnelled) {
    udp_peer far_end;
    command("0010 0006 0004 0002 0002");
    receive(element_of(protocol::cmd_tunnel::tag, from_hex("0004 0002 0002 000E 0001 00 000D 0003 525450") +
                                                      address_element(protocol::cmd_tunnel::to, far_end)));
    EXPECT_EQ(far_end.received(channels[2].get_fd_rtp4()), lines{"RTP"});
}

TEST_F(commands, strangers_are_not_obeyed_until_they_start_a_session) {
    udp_peer stranger;
    std::string const us = to_string(utils::readable_ip(peer.address()));
    std::string const them = to_string(utils::readable_ip(stranger.address()));
    on_command(to_str(from_hex("0007 0006 0001 0002 0001")), stranger.address());
    EXPECT_EQ(peer.transcript(), lines{"8 Discard command for " + us + " from source " + them});
    on_command(to_str(from_hex("0013 0003 616263")), stranger.address());
    EXPECT_EQ(peer.transcript(), lines{"5 Start session " + them}) << "still to the old peer";
    EXPECT_EQ(stranger.received(command_fd), lines{from_hex("00130000")});
    command("0004 0000");
    EXPECT_EQ(stranger.received(command_fd).size(), 1u) << "the old peer is discarded, the new one told";
    EXPECT_EQ(peer.transcript(), lines{});
}

TEST_F(commands, what_comes_from_the_own_socket_is_dropped) {
    for (auto const open_socket :
         {utils::open_loopback_socket, +[](int port) { return utils::open_udp_socket(port, false); }}) {
        int const usual = std::exchange(command_fd, open_socket(0));
        ip_port const own(str(127, 0, 0, 1), bound_port(command_fd)), neighbour(str(127, 0, 0, 2), own.port);
        control_adr = own;
        send_command(to_str(from_hex("0013 0000 0007 0006 0001 0002 0001")));
        int received = 0;
        ip_port source;
        for (str data; received < 5 && !(data = utils::recv_udp_packet4(command_fd, source)).empty(); received++)
            on_command(data, source);
        EXPECT_EQ(received, 1) << "it causes nothing that comes back again";
        EXPECT_EQ(log_level, 9);
        EXPECT_TRUE(source == own && control_adr == own);
        on_command(to_str(from_hex("0013 0000")), neighbour);
        EXPECT_TRUE(control_adr == neighbour) << "the same port of another address";
        close(std::exchange(command_fd, usual));
    }
}

TEST_F(commands, loopback_test_finds_its_pattern_in_what_comes_back) {
    std::string const found = unspaced("0015 0006 0009 0002 0001"), not_found = unspaced("0015 0006 0009 0002 0000");
    std::string const pattern = "loopbacktest" + std::string(148, '\0'), noise(160, 'l');
    std::pair<std::string, int> const table[] = {
        {pattern, 1},
        {noise + noise + pattern, 3},
        {noise + std::string(147, 'x') + "loopbacktestx", 2},
        {std::string(152, 'x') + "loopbacktest" + std::string(156, 'x') + pattern, 3},  // not across blocks
        {"loopbacktest", 1}};
    for (auto const& [comes_back, reads] : table) {
        telephone.say(0, comes_back);
        EXPECT_EQ(answer("0015 0000"), lines{found}) << comes_back;
        std::string written;
        for (int i = 0; i <= reads; i++)
            written += pattern;
        EXPECT_TRUE(telephone.heard(0) == written) << comes_back;
    }
    std::filesystem::remove(telephone.path(0));
    EXPECT_EQ(answer("0015 0000"), lines{not_found}) << "no device";
    std::filesystem::create_symlink("/dev/zero", telephone.path(0));
    EXPECT_EQ(answer("0015 0000"), lines{not_found});
}

/// Everything that a command line can set, as text.
std::string scan(std::vector<char const*> arguments) {
    tunnel_device.clear();
    tdm_device = str("/dev/sdt");
    control_adr = ip_port(str(127, 0, 0, 1), protocol::default_peer_port);
    ipv4 = ipv6 = true;
    arguments.insert(arguments.begin(), "fxsmedia");
    options chosen;
    options::verdict const verdict = chosen.scan(static_cast<int>(arguments.size()), arguments.data());
    EXPECT_EQ(log_level, -1) << "call control alone sets the threshold";
    std::string const switched_on = std::string(extensions.dtmf ? " dtmf" : "") + (extensions.g722 ? " g722" : "");
    extensions = {};
    char const* const ends[] = {" run", " version", " extensions", " bad"};
    str const text = str::sprintf("%d %d %s %s %s ", arg_int(chosen.log), arg_int(chosen.local_port),
                                  arg_str(tunnel_device), arg_str(chosen.pipe), arg_str(tdm_device));
    return to_string(text + utils::readable_ip(control_adr)) + (chosen.debug ? " debug" : "") + (ipv4 ? " 4" : "") +
           (ipv6 ? " 6" : "") + switched_on + ends[static_cast<int>(verdict)];
}

TEST(options, table) {
    std::string const normal = "0 0   /dev/sdt 127.0.0.1:1299";
    std::pair<std::vector<char const*>, std::string> const table[] = {
        {{}, normal + " 4 6 run"},
        {{"--log", "-2", "--port", "12ab", "--tunnel", "/dev/x", "--pipe", "/p", "--tdm", "/t", "--dest-port", "77",
          "--dest-ip", "::1", "--debug", "--ipv6", "--ipv4"},
         "-2 12 /dev/x /p /t [::1]:77 debug 4 run"},
        {{"--dest-ip", "10.0.0.9", "--port", "1", "--port", "2"}, "0 2   /dev/sdt 10.0.0.9:1299 4 6 run"},
        {{"--ipv4", "--ipv6"}, normal + " 6 run"},
        {{"--port", "--debug"}, normal + " 4 6 run"},
        {{"--debug", "--dest-ip"}, normal + " debug 4 6 bad"},
        {{""}, normal + " 4 6 bad"},
        {{"--PORT", "1"}, normal + " 4 6 bad"},
        {{"--extensions", "g722,dtmf", "--debug"}, normal + " debug 4 6 dtmf g722 run"},
        {{"--extensions", "g722", "--extensions", "none"}, normal + " 4 6 g722 bad"},
        {{"--extensions", "help", "--debug"}, normal + " 4 6 extensions"},
        {{"--version", "--debug"}, normal + " 4 6 version"},
        {{"--frobnicate", "--version"}, normal + " 4 6 version"},
        {{"--port", "--version"}, normal + " 4 6 run"}};
    for (auto const& [arguments, result] : table)
        EXPECT_EQ(scan(arguments), result);
}

}  // namespace
