#include <cinttypes>
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
protocol::bytes to_bytes(std::string const& text) {
    return {text.begin(), text.end()};
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
    static constexpr std::size_t block = 160;

    Secure() : process({"--tdm", devices.tdm_path()}) {
        devices.link(0, line.device());
        start();
    }

    void start() {
        port = process.open(0).rtp_port;
        process.send(protocol::encode(protocol::media_command{
            .call = 0, .send = pcm_0, .map = {pcm_0}, .rtp_dest = protocol::address{{127, 0, 0, 1}, 9}}));
        process.put_on_line(0, 0);
        far = std::make_unique<stranger>(port);
    }
    void key(std::string const& receive, std::string const& transmit) {
        protocol::media_command command{.call = 0, .srtp_rx_key = to_bytes(receive), .srtp_tag_bytes = 10};
        if (!transmit.empty())
            command.srtp_tx_key = to_bytes(transmit);
        process.send(protocol::encode(command));
        process.settle();
    }
    /// What this packet says is heard next, and nothing that was forged before it.
    void plays(std::string const& packet, int name) {
        far->send(packet);
        ASSERT_EQ(to_hex(line.hear(block)), to_hex(pcm_of(name)));
        played++;
    }
    void forge(std::string const& packet) {
        far->send(packet);
        forged++;
    }

    terminal line;
    line_links devices;
    controlled_process process;
    std::uint16_t port = 0;
    std::unique_ptr<stranger> far;
    int played = 0, forged = 0;
};

TEST_F(Secure, NothingIsPlayedWithoutAKeyOfThisCall) {
    key(material(9), material(9));
    process.send(protocol::encode(protocol::end_command{.call = 0}));
    start();  // a call before had keys
    plays(named_packet(100, 1).build(), 1);
    key(material(1), "");
    srtp_ctx unkeyed, zero = keyed(std::string(30, '\0')), old = keyed(material(9)),
                      right = keyed(material(1));
    for (std::uint32_t number = 101; number < 121; number++) {
        forge(named_packet(static_cast<int>(number), 77).build());
        for (srtp_ctx* const forger : {&unkeyed, &zero, &old})
            forge(packet_of(*forger, number, 77));
        plays(packet_of(right, number, 2), 2);
    }
    std::printf("a key after a plain start: %d packets played, %d forged, none of them heard\n", played,
                forged);
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
        EXPECT_TRUE(process.client.wait_for<protocol::new_ssrc>(patience))
            << "the forger's stream is followed";
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
    std::printf("counter at 5, forged streams, new keys: %d packets played, %d forged, none of them heard\n",
                played, forged);
}

// ---- keys in the memory of the process

struct secret {
    std::string name, bytes;
};

/// The master key and salt, and what is derived from them.
std::vector<secret> secrets_of(std::string const& key_and_salt) {
    srtp_ctx context = keyed(key_and_salt);
    std::vector<secret> all{{"master key", key_and_salt.substr(0, 16)},
                            {"master salt", key_and_salt.substr(16)}};
    for (aes_cm_context const* const cipher : {&context.rtp, &context.rtcp}) {
        all.push_back({"session key", to_string(cipher->session_key)});
        all.push_back({"session salt", to_string(cipher->session_salt).substr(0, 14)});
        all.push_back({"authentication key", to_string(cipher->auth_key)});
        all.push_back(
            {"last round key", {reinterpret_cast<char const*>(cipher->round_keys[10].octets()), 16}});
    }
    for (std::size_t i = 0, raw = all.size(); i < raw; i++) {
        std::string const upper = to_hex(all[i].bytes);
        std::string lower = upper;
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](char c) { return c >= 'A' ? c + 32 : c; });
        all.push_back({all[i].name + " in hex", upper});
        all.push_back({all[i].name + " in hex", lower});
    }
    return all;
}

/// What the process's data, heap and stacks hold: the pages that exist, one string a mapping.
std::vector<std::string> memory_of(pid_t pid) {
    constexpr std::uint64_t shadow_bytes = std::uint64_t{1} << 30;  // larger is AddressSanitizer's own
    constexpr std::uint64_t page = 4096, exists = std::uint64_t{3} << 62;
    std::string const process = "/proc/" + std::to_string(pid);
    std::ifstream maps(process + "/maps");
    int const pages = open((process + "/pagemap").c_str(), O_RDONLY | O_CLOEXEC);
    int const memory = open((process + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<std::string> all;
    for (std::string line; std::getline(maps, line);) {
        std::uint64_t from = 0, to = 0;
        char access[5] = "";
        if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %4s", &from, &to, access) != 3 ||
            std::string_view(access, 2) != "rw" || to - from > shadow_bytes)
            continue;
        std::vector<std::uint64_t> entries((to - from) / page);
        EXPECT_GE(pread(pages, entries.data(), 8 * entries.size(), static_cast<off_t>(from / page * 8)), 0);
        std::string bytes;
        for (std::uint64_t i = 0; i < entries.size(); i++) {
            if (entries[i] & exists) {
                bytes.resize(bytes.size() + page);
                EXPECT_EQ(
                    pread(memory, &bytes[bytes.size() - page], page, static_cast<off_t>(from + i * page)),
                    static_cast<ssize_t>(page));
            } else if (!bytes.ends_with('\0')) {
                bytes += '\0';  // what stands apart is not joined
            }
        }
        all.push_back(bytes);
    }
    close(pages);
    close(memory);
    return all;
}

/// The names of those that are there.
std::vector<std::string> found(std::vector<secret> const& wanted, pid_t pid) {
    std::vector<std::string> names;
    for (std::string const& bytes : memory_of(pid))
        for (secret const& s : wanted)
            if (memmem(bytes.data(), bytes.size(), s.bytes.data(), s.bytes.size()) != nullptr)
                names.push_back(s.name);
    return names;
}

TEST_F(Secure, KeysAreGoneFromMemoryWithTheCallAndWithTheNextKeys) {
    std::random_device random;
    auto const drawn = [&] {
        std::string bytes(30, 0);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        return bytes;
    };
    pid_t const pid = process.process.pid();
    int sequence = 100;
    auto const talk = [&](std::string const& receive) {
        srtp_ctx sender = keyed(receive);
        for (int i = 0; i < 5; i++) {
            line.say(pcm_of(3));
            plays(packet_of(sender, static_cast<std::uint32_t>(++sequence), 2), 2);
        }
    };
    std::vector<std::string> keys;
    auto const expect = [&](std::size_t index, bool there, char const* when) {
        std::vector<std::string> const names = found(secrets_of(keys[index]), pid);
        auto const has = [&](char const* name) { return std::count(names.begin(), names.end(), name) > 0; };
        std::printf("%s: %s %zu places with a secret of it\n", index % 2 ? "transmit key" : "receive key",
                    when, names.size());
        if (there)
            EXPECT_TRUE(has("master key") && has("session key")) << when << ": the search does not work";
        else
            EXPECT_EQ(names, std::vector<std::string>()) << when;
    };
    for (int round = 0; round < 2; round++) {
        keys.push_back(drawn());
        keys.push_back(drawn());
        key(keys[keys.size() - 2], keys.back());
        talk(keys[keys.size() - 2]);
        expect(keys.size() - 2, true, "during the call");
        expect(keys.size() - 1, true, "during the call");
    }
    expect(0, false, "after new keys");
    expect(1, false, "after new keys");
    process.send(protocol::encode(protocol::end_command{.call = 0}));
    process.settle();
    for (std::size_t index = 0; index < keys.size(); index++)
        expect(index, false, "after the call");
}

}  // namespace
