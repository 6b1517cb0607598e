#include <poll.h>

#include <numeric>
#include <random>

#include "srtp/aes.h"
#include "srtp/srtp.h"
#include "tests/attack/attacker.h"
#include "tests/support/media_fixture.h"
#include "tools/fxsline/driver_links.h"

namespace {

bool const tables_ready = (aes_compute_tables(), true);

constexpr std::uint32_t ssrc = 0xAAAA0001;
constexpr protocol::codec_choice pcm_0{0, 0};

srtp_ctx keyed(std::string const& key_and_salt) {
    srtp_ctx context;
    srtp_key(context, to_str(key_and_salt), to_str(be32(ssrc)));
    return context;
}

/// The process with call 0 on a line that takes everything at once: what a packet plays is there when it was accepted.
class secure_call : public testing::Test {
protected:
    secure_call() : no_error(line.create(own_lines + "0")), process({"--tdm", own_lines}) {
        protocol::address const nobody{{127, 0, 0, 1}, 9};
        far = std::make_unique<stranger>(process.open(0).rtp_port);
        tell(process, protocol::media_command{.call = 0, .send = pcm_0, .map = {pcm_0}, .rtp_dest = nobody});
        process.put_on_line(0, 0);
    }
    void key(std::string const& receive, std::string const& transmit) {
        tell(process, protocol::media_command{.call = 0,
                                              .srtp_rx_key = protocol::to_bytes(receive),
                                              .srtp_tx_key = protocol::to_bytes(transmit),
                                              .srtp_tag_bytes = 10});
        process.settle();
    }
    /// 10 ms from a sender that has come this far are heard next.
    void plays(srtp_ctx& sender, std::uint32_t sequence) {
        constexpr int name = 2;
        std::string const plain = named_packet(static_cast<int>(sequence), name, ssrc).build();
        str payload = to_str(plain.substr(12));
        far->send(to_string(srtp_protect(sender, to_str(plain.substr(0, 12)), payload, sequence, {10, str()})));
        std::string heard;
        pollfd waits{line.fd(), POLLIN, 0};
        while (heard.size() < 160 && poll(&waits, 1, 20000) == 1)
            for (std::uint8_t const byte : line.receive())
                heard += static_cast<char>(byte);
        ASSERT_EQ(to_hex(heard), to_hex(pcm_of(name)));
    }

    fxsline::signal_device line;
    std::string no_error;
    controlled_process process;
    std::unique_ptr<stranger> far;
};

/// Master key, a session key, and whatever else comes of them or is their hexadecimal text.
std::vector<std::string> secrets_of(std::string const& key_and_salt) {
    srtp_ctx const context = keyed(key_and_salt);
    std::vector<std::string> all{key_and_salt.substr(0, 16), to_string(context.rtp.session_key),
                                 key_and_salt.substr(16), to_string(context.rtcp.session_key)};
    for (aes_cm_context const* const cipher : {&context.rtp, &context.rtcp})
        for (str const& derived :
             {cipher->session_salt.leftstr(14), cipher->auth_key, str(cipher->round_keys[10].octets(), 16)})
            all.push_back(to_string(derived));
    for (std::size_t i = 0, raw = all.size(); i < raw; i++)
        all.insert(all.end(), {to_hex(all[i]), protocol::to_hex(protocol::to_bytes(all[i]))});
    return all;
}

/// In how many mappings of the process's data, heap and stacks each secret stands.
std::vector<int> found(std::string const& key_and_salt, pid_t pid) {
    constexpr std::uint64_t largest = 1 << 26;  // beyond lie tables of AddressSanitizer
    auto const secrets = secrets_of(key_and_salt);
    std::vector<int> counts(secrets.size());
    std::string const proc = "/proc/" + std::to_string(pid);
    std::ifstream maps(proc + "/maps"), memory(proc + "/mem");
    unsigned long from = 0, to = 0;
    for (std::string line; std::getline(maps, line);) {
        char writable = 0;
        std::sscanf(line.c_str(), "%lx-%lx %*c%c", &from, &to, &writable);
        if (writable != 'w' || to - from > largest)
            continue;
        std::string content(to - from, 0);
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(from)).read(content.data(), static_cast<long>(to - from));
        for (std::size_t i = 0; i < secrets.size(); i++)
            counts[i] += content.find(secrets[i]) != std::string::npos;
    }
    return counts;
}

TEST_F(secure_call, keys_are_gone_from_memory_with_the_call_and_with_the_next_keys) {
    std::random_device random;
    std::string keys[4];  // to receive, to transmit, and both again
    for (std::string& key_and_salt : keys)
        while (key_and_salt.size() < 30)
            key_and_salt += static_cast<char>(random());
    std::uint32_t sequence = 100;
    auto const expect = [&](char const* when, int from, int until, bool there) {
        for (int i = from; i < until; i++) {
            auto const counts = found(keys[i], process.process.pid());
            int const places = std::accumulate(counts.begin(), counts.end(), 0);
            std::printf("%s: key %d shows in %d places\n", when, i, places);
            EXPECT_TRUE(there ? counts[0] > 0 && counts[1] > 0 : places == 0) << "or the search fails";
        }
    };
    for (int i : {0, 2}) {
        key(keys[i], keys[i + 1]);
        srtp_ctx sender = keyed(keys[i]);
        for (int packets = 0; packets < 5; packets++) {
            line.send(protocol::to_bytes(pcm_of(3)));
            plays(sender, ++sequence);
        }
        expect("during the call", i, i + 2, true);
    }
    expect("after new keys", 0, 2, false);
    tell(process, protocol::end_command{.call = 0});
    process.settle();
    expect("after the call", 0, 4, false);
}

}  // namespace
