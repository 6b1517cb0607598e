// Secure RTP: what a peer has protected must be played whatever else arrives, and nothing else may be.
//
// First byte: tag length and MKI. Each step: 1 byte of what to do, 1 byte of parameter, for foreign packets a piece.

#include "fuzz/fuzz_target.h"
#include "srtp/srtp_packet.h"

namespace {

enum step { good, foreign, damaged, truncated, rekey, step_count };

constexpr int tag_lengths[] = {10, 4, 20, 8};
constexpr int header_bytes = 12;
constexpr int payload_bytes = 160;

/// A peer of the channel: the module's own sender, whose agreement with others is tested elsewhere.
class sender {
public:
    sender(int tag_length, str const& mki) : trailer{tag_length, mki}, material(str('k', 30)) {
        key(material);
    }

    void key(str const& chosen) {
        material = chosen;
        srtp_init(tx, material.leftstr(16), material.substr(16), str("PEER"));
    }
    str const& get_material() const { return material; }
    srtp_trailer const& get_trailer() const { return trailer; }

    /// The next packet, of samples that are its number.
    str packet() {
        sequence++;
        unsigned char const high = static_cast<unsigned char>(sequence >> 8);
        unsigned char const low = static_cast<unsigned char>(sequence);
        str const header = str(0x80, 0, high, low) + str(high, low, 0, 0) + str("PEER");
        str payload = plain();
        return srtp_protect(tx, header, payload, sequence, trailer);
    }
    str plain() const { return str(static_cast<unsigned char>(sequence), payload_bytes); }

private:
    srtp_trailer trailer;
    str material;
    srtp_ctx tx;
    std::uint32_t sequence = 65500;  // wraps soon
};

void deliver(channel& tested, str const& data, long long at_ms) {
    tested.process_rtp_data(data, ip_port(str('\1', 4), 4000), false, rtimestamp(at_ms * 1000000));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    unsigned const shape = input.byte();
    channel& tested = fuzz_channel();
    sender peer(tag_lengths[shape % 4], str('m', static_cast<int>(shape >> 4)));
    auto const key = [&] {
        tested.set_srtp(peer.get_material(), peer.get_material(), peer.get_trailer().tag_length,
                        peer.get_trailer().mki);
    };
    key();
    long long at_ms = 1000;
    auto const deliver_good = [&] {
        at_ms += 10;
        deliver(tested, peer.packet(), at_ms);
        FUZZ_CHECK(tested.output_available());
        FUZZ_CHECK(tested.get_samples() == peer.plain());
    };
    deliver_good();
    while (!input.empty()) {
        unsigned const what = input.byte(), parameter = input.byte();
        switch (what % step_count) {
            case good: deliver_good(); break;
            case foreign: deliver(tested, input.piece(), at_ms); break;
            case damaged: {
                str bad = sender(peer).packet();
                int const at = 2 + static_cast<int>(parameter) % (header_bytes + payload_bytes - 2);
                bad.set_character(at, static_cast<unsigned char>(bad[at] ^ (1 + what / step_count)));
                deliver(tested, bad, at_ms);
                break;
            }
            case truncated:
                deliver(tested, sender(peer).packet().leftstr(static_cast<int>(parameter) % 172), at_ms);
                break;
            default:
                peer.key(str(static_cast<unsigned char>(parameter), 30));
                key();
                break;
        }
        FUZZ_CHECK(!tested.output_available());
    }
    while (tested.output_available())
        fuzz_play(tested, 1);
    fuzz_report(tested);
    return 0;
}
