// What SRTP costs, next to libsrtp2 in the same run, as Markdown tables on standard output: whole packets as a G.711
// call of 20 ms has them (160 bytes of payload, tag of 10), and the slope from 160 to 1120 bytes, which is the price of
// a byte without what each packet costs once.
//
//     srtp [ROUNDS]
#include <srtp2/srtp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "bench/stopwatch.h"
#include "srtp/aes.h"
#include "srtp/srtp.h"

namespace {

using stopwatch::contestant;

constexpr int packets = 1000;  // in a round
constexpr int header_bytes = 12;
constexpr int short_payload = 160;
constexpr int long_payload = 1120;
constexpr int tag_bytes = 10;
constexpr int no_tag = 0;
unsigned char const key_bytes[] = "0123456789abcdefghijklmnopqrst";  // 16 of key, 14 of salt

unsigned char header_of(int i, int at) {
    unsigned char const header[header_bytes] = {
        0x80, 0, static_cast<unsigned char>(i >> 8), static_cast<unsigned char>(i), 0, 0, 0, 0, 1, 2, 3, 4};
    return header[at];
}

str header(int i) {
    str bytes('\0', header_bytes);
    for (int at = 0; at < header_bytes; at++)
        bytes.set_character(at, header_of(i, at));
    return bytes;
}

// ---- ours

struct our_stream {
    srtp_ctx context;
    srtp_trailer trailer;
    std::vector<str> headers;
    str payload;
    std::vector<str> secured;
    int received = 0;

    our_stream(int payload_bytes, int tag) : trailer{tag, str()}, payload('p', payload_bytes) {
        for (int i = 0; i < packets; i++)
            headers.push_back(header(i));
        key();
        protect_all();
    }
    void key() {
        srtp_init(context, str(key_bytes, 16), str(key_bytes + 16, 14), str(1, 2, 3, 4));
        srtp_set_local_ssrc(context);
    }
    void protect_all() {
        secured.clear();
        for (int i = 0; i < packets; i++) {
            str copy = payload;
            secured.push_back(srtp_protect(context, headers[static_cast<std::size_t>(i)], copy,
                                           static_cast<std::uint32_t>(i), trailer));
        }
    }
    void unprotect_all() {
        received = 0;
        for (int i = 0; i < packets; i++) {
            std::uint32_t sequence = static_cast<std::uint32_t>(i);
            str clear;
            received +=
                srtp_unprotect(context, secured[static_cast<std::size_t>(i)], header_bytes, sequence, clear, trailer) &&
                clear == payload;
        }
    }
};

// ---- libsrtp2

void must(srtp_err_status_t status, char const* what) {
    if (status == srtp_err_status_ok)
        return;
    std::fprintf(stderr, "libsrtp2: %s fails (%d)\n", what, static_cast<int>(status));
    std::exit(EXIT_FAILURE);
}

struct peer_stream {
    using buffer = std::array<unsigned char, 1200>;

    srtp_sec_serv_t service;
    int payload_bytes;
    srtp_t session = nullptr;
    std::vector<buffer> clear;
    std::vector<buffer> packet;
    std::vector<int> length;

    peer_stream(int bytes, srtp_sec_serv_t what)
        : service(what), payload_bytes(bytes), clear(packets), packet(packets), length(packets) {
        for (int i = 0; i < packets; i++) {
            buffer& one = clear[static_cast<std::size_t>(i)];
            one.fill('p');
            for (int at = 0; at < header_bytes; at++)
                one[static_cast<std::size_t>(at)] = header_of(i, at);
        }
    }
    ~peer_stream() { srtp_dealloc(session); }

    /// A new session: the old one would take the same packets for a replay.
    void open(bool sender) {
        if (session != nullptr)
            srtp_dealloc(session);
        srtp_policy_t policy{};
        if (service == sec_serv_conf)
            srtp_crypto_policy_set_aes_cm_128_null_auth(&policy.rtp);
        else if (service == sec_serv_auth)
            srtp_crypto_policy_set_null_cipher_hmac_sha1_80(&policy.rtp);
        else
            srtp_crypto_policy_set_rtp_default(&policy.rtp);
        srtp_crypto_policy_set_rtcp_default(&policy.rtcp);
        policy.ssrc.type = sender ? ssrc_any_outbound : ssrc_any_inbound;
        policy.window_size = 128;
        unsigned char key[sizeof key_bytes];
        std::memcpy(key, key_bytes, sizeof key);
        policy.key = key;
        must(srtp_create(&session, &policy), "srtp_create");
    }
    void fill() {
        packet = clear;
        length.assign(packets, header_bytes + payload_bytes);
        open(true);
    }
    void protect_all() {
        for (std::size_t i = 0; i < packets; i++)
            must(::srtp_protect(session, packet[i].data(), &length[i]), "srtp_protect");
    }
    void secure() {
        fill();
        protect_all();
        open(false);
    }
    void unprotect_all() {
        for (std::size_t i = 0; i < packets; i++)
            must(::srtp_unprotect(session, packet[i].data(), &length[i]), "srtp_unprotect");
    }
};

// ---- tables

double ratio(std::vector<contestant> const& pair) {
    return pair[0].least_ns / pair[1].least_ns;
}

void whole_packets(int rounds) {
    our_stream ours(short_payload, tag_bytes);
    peer_stream peer(short_payload, sec_serv_conf_and_auth);
    std::vector<contestant> protect{{"ours", [&] { ours.protect_all(); }, packets, [&] { ours.key(); }},
                                    {"libsrtp2", [&] { peer.protect_all(); }, packets, [&] { peer.fill(); }}};
    std::vector<contestant> unprotect{{"ours", [&] { ours.unprotect_all(); }, packets, [&] { ours.key(); }},
                                      {"libsrtp2", [&] { peer.unprotect_all(); }, packets, [&] { peer.secure(); }}};
    stopwatch::race(protect, rounds);
    std::uint64_t const before = str::allocated_size;
    stopwatch::race(unprotect, rounds);
    if (ours.received != packets || str::allocated_size != before) {
        std::fprintf(stderr, "%d of %d packets came out, %llu bytes taken from the system\n", ours.received, packets,
                     static_cast<unsigned long long>(str::allocated_size - before));
        std::exit(EXIT_FAILURE);
    }
    std::printf("| packet of 172 bytes | ours, ns | libsrtp2, ns | ours / libsrtp2 |\n|---|--:|--:|--:|\n");
    std::printf("| protect | %.0f | %.0f | %.2f |\n", protect[0].least_ns, protect[1].least_ns, ratio(protect));
    std::printf("| unprotect | %.0f | %.0f | %.2f |\n\n", unprotect[0].least_ns, unprotect[1].least_ns,
                ratio(unprotect));
}

/// ns a byte of whichever work, from a short and a long packet.
double slope(contestant const& brief, contestant const& lengthy) {
    return (lengthy.least_ns - brief.least_ns) / (long_payload - short_payload);
}

void price_of_a_byte(int rounds) {
    our_stream our_short(short_payload, no_tag);
    our_stream our_long(long_payload, no_tag);
    str const short_packet('p', header_bytes + short_payload);
    str const long_packet('p', header_bytes + long_payload);
    auto const tags_of = [&](str const& packet) {
        return [&] {
            for (int i = 0; i < packets; i++)
                stopwatch::use(srtp_get_tag(our_short.context, packet, tag_bytes));
        };
    };
    peer_stream conf_short(short_payload, sec_serv_conf);
    peer_stream conf_long(long_payload, sec_serv_conf);
    peer_stream auth_short(short_payload, sec_serv_auth);
    peer_stream auth_long(long_payload, sec_serv_auth);
    std::vector<contestant> all{{"AES-CM", [&] { our_short.protect_all(); }, packets},
                                {"AES-CM", [&] { our_long.protect_all(); }, packets},
                                {"AES-CM", [&] { conf_short.protect_all(); }, packets, [&] { conf_short.fill(); }},
                                {"AES-CM", [&] { conf_long.protect_all(); }, packets, [&] { conf_long.fill(); }},
                                {"HMAC-SHA1", tags_of(short_packet), packets},
                                {"HMAC-SHA1", tags_of(long_packet), packets},
                                {"HMAC-SHA1", [&] { auth_short.protect_all(); }, packets, [&] { auth_short.fill(); }},
                                {"HMAC-SHA1", [&] { auth_long.protect_all(); }, packets, [&] { auth_long.fill(); }}};
    stopwatch::race(all, rounds);
    std::printf("| a byte | ours, ns | libsrtp2, ns | ours / libsrtp2 |\n|---|--:|--:|--:|\n");
    for (std::size_t i = 0; i < all.size(); i += 4) {
        double const ours = slope(all[i], all[i + 1]);
        double const peer = slope(all[i + 2], all[i + 3]);
        std::printf("| %s | %.2f | %.2f | %.2f |\n", all[i].name.c_str(), ours, peer, ours / peer);
    }
}

}  // namespace

int main(int argc, char** argv) {
    int const rounds = argc > 1 ? std::atoi(argv[1]) : 50;
    if (argc > 2 || rounds < 1) {
        std::fprintf(stderr, "usage: srtp [ROUNDS]\n");
        return EXIT_FAILURE;
    }
    aes_compute_tables();
    must(::srtp_init(), "srtp_init");
    whole_packets(rounds);
    price_of_a_byte(rounds);
    return EXIT_SUCCESS;
}
