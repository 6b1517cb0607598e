// Copies of SRTCP packets, protected by libsrtp2, read with keys that come by command or option.

#include "tools/fxsctl/rtcp_reader.h"

#include <gtest/gtest.h>

#include "tests/srtp/libsrtp_peer.h"
#include "tools/rtcp/packet.h"

using namespace fxsctl;
using protocol::bytes;

namespace {

bytes const compound = protocol::from_hex("80c90001 11111111 81ca0003 11111111 010456454c4b0000").value();
bytes const key = protocol::from_hex("e1f97a0d3e018be0d64fa32c06de4139 0ec675ad498afeebb6960b3aabe6").value();

str to_str(bytes const& data) {
    return str(data.data(), static_cast<int>(data.size()));
}

bytes protect(libsrtp_peer& peer) {
    str packet = to_str(compound);
    EXPECT_TRUE(peer.protect_rtcp(packet));
    return {packet.cbuffer(), packet.cbuffer() + packet.length()};
}

TEST(srtcp, opens_what_libsrtp2_protected_and_nothing_else) {
    for (bytes const& mki : {bytes{}, bytes{1, 2, 3}}) {
        libsrtp_peer peer(libsrtp_peer::sends, to_str(key), 4, to_str(mki));
        bytes const packet = protect(peer);
        EXPECT_EQ(rtcp_view::open_srtcp({key, mki}, packet), compound);
        for (std::size_t length = 0; length < packet.size(); ++length)
            EXPECT_EQ(rtcp_view::open_srtcp({key, mki}, protocol::byte_view(packet).first(length)), std::nullopt);
        for (std::size_t const at : {std::size_t{0}, std::size_t{9}, packet.size() - 1}) {
            bytes forged = packet;
            forged[at] ^= 1;
            EXPECT_EQ(rtcp_view::open_srtcp({key, mki}, forged), std::nullopt) << at;
        }
        for (std::size_t const key_bytes : {30U, 16U})
            EXPECT_EQ(rtcp_view::open_srtcp({bytes(key_bytes), mki}, packet), std::nullopt) << key_bytes;
    }
}

bytes media(std::uint16_t call, bytes const& rx, bytes const& mki = {}) {
    return protocol::encode(protocol::media_command{.call = call, .srtp_rx_key = rx, .srtp_mki = mki});
}

TEST(rtcp_reader, keys_by_command_by_option_or_missing) {
    libsrtp_peer peer(libsrtp_peer::sends, to_str(key), 4, str());
    protocol::rtcp_copy const copy{2, "id", true, protect(peer)};
    protocol::media_command const option{.srtp_tx_key = key};  // the other call's
    std::tuple<std::vector<bytes>, protocol::media_command, std::string> const cases[] = {
        {{}, {}, "no key"},
        {{media(2, key)}, {}, "decrypted"},
        {{media(1, key)}, {}, "no key"},  // another call's
        {{media(2, key), media(2, bytes(30))}, {}, "wrong key"},
        {{media(2, bytes(30))}, option, "decrypted"},
        {{media(2, key, {9})}, {}, "wrong key"},
        {{}, option, "decrypted"}};
    for (auto const& [commands, keys, srtcp] : cases) {
        rtcp_reader reader;
        reader.use(keys);
        for (bytes const& command : commands)
            reader.learn(command);
        rtcp_reading const reading = reader.read(copy);
        EXPECT_EQ(reading.srtcp, srtcp) << commands.size();
        EXPECT_EQ(reading.plain, srtcp == "decrypted" ? compound : copy.packet);
        EXPECT_EQ(reading.packets.size(), srtcp == "decrypted" ? 2U : 0U);
        for (bool const received : {true, false})
            EXPECT_EQ(reader.read({2, "id", received, compound}).packets.size(), 2U) << "plain";
    }
}

TEST(rtcp_reader, an_encrypted_packet_is_never_shown_as_nonsense) {
    libsrtp_peer peer(libsrtp_peer::sends, to_str(key), 10, str());
    for (int n = 0; n < 2000; ++n) {
        bytes const data = protect(peer);
        ASSERT_STREQ(rtcp_reader().read({0, "id", true, data}).srtcp, "no key") << protocol::to_hex(data);
    }
}

}  // namespace
