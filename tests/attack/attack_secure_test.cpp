#include <cstring>
#include <random>

#include "srtp/aes.h"
#include "srtp/srtp.h"
#include "tests/attack/attacker.h"
#include "tests/support/media_fixture.h"

namespace {

bool const tables_ready = (aes_compute_tables(), true);

constexpr std::uint32_t right_ssrc = 0xAAAA0001, forged_ssrc = 0xBBBB0002;
constexpr protocol::codec_choice pcm_0{0, 0};

std::string material(char name) {
    return std::string(16, name) + std::string(14, 's');
}
srtp_ctx keyed(std::string const& key_and_salt) {
    srtp_ctx context;
    srtp_key(context, to_str(key_and_salt), to_str(be32(right_ssrc)));
    return context;
}

/// 10 ms from a sender that has come this far.
std::string packet_of(srtp_ctx& sender, std::uint32_t sequence, int name, bool marker = false) {
    rtp_packet packet = named_packet(static_cast<std::uint16_t>(sequence), name, right_ssrc);
    packet.marker = marker;
    std::string const plain = packet.build();
    str payload = to_str(plain.substr(12));
    sender.ssrc = to_str(be32(right_ssrc));
    return to_string(srtp_protect(sender, to_str(plain.substr(0, 12)), payload, sequence, {10, str()}));
}

/// The process with call 0 on a line that takes everything at once: what a packet plays is there when it was accepted.
class Secure : public testing::Test {
protected:
    Secure() : no_error(line.create(own_lines + "0")), process({"--tdm", own_lines}) { start(); }

    void start() {
        far = std::make_unique<stranger>(process.open(0).rtp_port);
        protocol::address const nobody{{127, 0, 0, 1}, 9};
        tell(process, protocol::media_command{.call = 0, .send = pcm_0, .map = {pcm_0}, .rtp_dest = nobody});
        process.put_on_line(0, 0);
    }
    void key(std::string const& receive, std::optional<std::string> const& transmit) {
        protocol::media_command command{.call = 0, .srtp_tag_bytes = 10};
        command.srtp_rx_key = protocol::to_bytes(receive);
        if (transmit)
            command.srtp_tx_key = protocol::to_bytes(*transmit);
        tell(process, command);
        process.settle();
    }
    /// What this packet says is heard next, and nothing that was forged before it.
    void plays(std::string const& packet, int name) {
        far->send(packet);
        std::string heard;
        pollfd waits{line.fd(), POLLIN, 0};
        while (heard.size() < 160 && poll(&waits, 1, 20000) == 1)
            for (std::uint8_t const byte : line.receive())
                heard += static_cast<char>(byte);
        ASSERT_EQ(to_hex(heard), to_hex(pcm_of(name)));
        played++;
    }
    void forge(std::string const& packet) { far->send((forged++, packet)); }
    void print(char const* what) const {
        std::printf("%s: %d packets played, %d forged, none of them heard\n", what, played, forged);
    }

    fxsline::signal_device line;
    std::string no_error;
    controlled_process process;
    std::unique_ptr<stranger> far;
    int played = 0, forged = 0;
};

TEST_F(Secure, NothingIsPlayedWithoutAKeyOfThisCall) {
    key(material(9), material(9));
    tell(process, protocol::end_command{.call = 0});
    start();  // a call before had keys
    plays(named_packet(100, 1).build(), 1);
    key(material(1), std::nullopt);
    srtp_ctx unkeyed, zero = keyed(std::string(30, '\0')), old = keyed(material(9)),
                      right = keyed(material(1));
    for (std::uint32_t number = 101; number < 121; number++) {
        forge(named_packet(static_cast<int>(number), 77).build());
        for (srtp_ctx* const forger : {&unkeyed, &zero, &old})
            forge(packet_of(*forger, number, 77));
        plays(packet_of(right, number, 2), 2);
    }
    print("a key after a plain start");
}

// The sender's counter stands at 5, after 87 minutes of 50 packets a second.
TEST_F(Secure, TheRolloverCounterOutlivesForgedStreamsAndNewKeys) {
    srtp_ctx first = keyed(material(1)), second = keyed(material(2)), wrong = keyed(material(3));
    std::uint32_t number = 0x8000;
    int name = 1;
    auto const go_on = [&](srtp_ctx& sender, int packets) {
        for (int i = 0; i < packets; i++, name++)
            ASSERT_NO_FATAL_FAILURE(plays(packet_of(sender, ++number, name), name)) << std::hex << number;
    };
    auto const take_over = [&] {
        process.client.kept().clear();
        usleep(150000);  // 100 ms at least
        forge(named_packet(7, 77, forged_ssrc).build());
        EXPECT_TRUE(process.client.wait_for<protocol::new_ssrc>(patience)) << "the forger is followed";
    };
    key(material(1), material(9));
    for (; number < 0x50000; name++)
        ASSERT_NO_FATAL_FAILURE(plays(packet_of(first, number += 0x3FFF, name, true), name));
    go_on(first, 20);
    take_over();
    forge(packet_of(wrong, number + 1, 77));
    go_on(first, 20);
    number |= 0xFFFF;
    take_over();
    go_on(first, 3);  // and wraps meanwhile
    key(material(2), material(9));
    forge(packet_of(first, number + 1, 77));
    go_on(second, 20);
    print("counter at 5, forged streams, new keys");
}

// ---- keys in the memory of the process

/// Name and bytes of master key and salt, of what is derived from them, and of all their hexadecimal texts.
std::vector<std::pair<std::string, std::string>> secrets_of(std::string const& key_and_salt) {
    srtp_ctx const context = keyed(key_and_salt);
    std::vector<std::pair<std::string, std::string>> all{{"master key", key_and_salt.substr(0, 16)},
                                                         {"master salt", key_and_salt.substr(16)}};
    for (aes_cm_context const* const cipher : {&context.rtp, &context.rtcp}) {
        all.emplace_back("session key", to_string(cipher->session_key));
        all.emplace_back("session salt", to_string(cipher->session_salt).substr(0, 14));
        all.emplace_back("authentication key", to_string(cipher->auth_key));
        all.emplace_back("round key", to_string(str(cipher->round_keys[10].octets(), 16)));
    }
    for (std::size_t i = 0, raw = all.size(); i < raw; i++) {
        all.emplace_back(all[i].first + " in hex", to_hex(all[i].second));
        all.emplace_back(all[i].first + " in hex", protocol::to_hex(protocol::to_bytes(all[i].second)));
    }
    return all;
}

/// Which secrets stand in the process's data, heap and stacks.
std::vector<std::string> found(std::string const& key_and_salt, pid_t pid) {
    constexpr std::uint64_t largest = 1 << 26;  // beyond lie tables of AddressSanitizer
    auto const secrets = secrets_of(key_and_salt);
    std::vector<std::string> names;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::ifstream memory("/proc/" + std::to_string(pid) + "/mem");
    for (std::string line; std::getline(maps, line);) {
        std::uint64_t const from = std::stoull(line, nullptr, 16);
        std::uint64_t const bytes = std::stoull(line.substr(line.find('-') + 1), nullptr, 16) - from;
        if (line.find(" rw") == std::string::npos || bytes > largest)
            continue;
        std::string content(bytes, 0);
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(from))
            .read(content.data(), static_cast<std::streamsize>(bytes));
        for (auto const& [name, secret] : secrets)
            if (memmem(content.data(), content.size(), secret.data(), secret.size()) != nullptr)
                names.push_back(name);
    }
    return names;
}

TEST_F(Secure, KeysAreGoneFromMemoryWithTheCallAndWithTheNextKeys) {
    std::random_device random;
    std::string keys[4];  // to receive, to transmit, and both again
    for (std::string& key_and_salt : keys)
        while (key_and_salt.size() < 30)
            key_and_salt += static_cast<char>(random());
    std::uint32_t sequence = 100;
    auto const expect = [&](char const* when, int from, int until, bool there) {
        for (int i = from; i < until; i++) {
            auto const names = found(keys[i], process.process.pid());
            std::printf("%s: key %d shows in %zu places\n", when, i, names.size());
            EXPECT_EQ(std::count(names.begin(), names.end(), "master key") > 0, there)
                << "or the search fails";
            EXPECT_EQ(std::count(names.begin(), names.end(), "session key") > 0, there);
            EXPECT_TRUE(there || names.empty()) << names[0];
        }
    };
    for (int i : {0, 2}) {
        key(keys[i], keys[i + 1]);
        srtp_ctx sender = keyed(keys[i]);
        for (int packets = 0; packets < 5; packets++) {
            line.send(protocol::to_bytes(pcm_of(3)));
            plays(packet_of(sender, ++sequence, 2), 2);
        }
        expect("during the call", i, i + 2, true);
    }
    expect("after new keys", 0, 2, false);
    tell(process, protocol::end_command{.call = 0});
    process.settle();
    expect("after the call", 0, 4, false);
}

}  // namespace
