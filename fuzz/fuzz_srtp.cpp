// Secure RTP: what a peer has protected must be played whatever else arrives, and nothing else may be.
//
// First byte: tag length and MKI. Each step: 1 byte of what to do, 1 byte of parameter, for foreign packets a piece.

#include "fuzz/fuzz_target.h"
#include "srtp/srtp.h"

namespace {

constexpr int header_bytes = 12;
constexpr int payload_bytes = 160;

/// A peer of the channel: the module's own sender, whose agreement with others is tested elsewhere.
class srtp_sender {
public:
    srtp_sender(int tag_length, str const& mki) : trailer{tag_length, mki}, material(str('k', 30)) {
        key(material);
    }

    void key(str const& chosen) {
        material = chosen;
        srtp_init(tx, material.leftstr(16), material.substr(16), str("PEER"));
    }
    void key_receiver(channel& receiver) const {
        receiver.set_srtp(material, material, trailer.tag_length, trailer.mki);
    }

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

}  // namespace

FUZZ_TARGET(srtp) {
    enum step { good, foreign, damaged, truncated, rekey, step_count };
    constexpr int tag_lengths[] = {10, 4, 20, 8};
    unsigned const shape = input.byte();
    fuzz_call call;
    srtp_sender peer(tag_lengths[shape % 4], str('m', static_cast<int>(shape >> 4)));
    peer.key_receiver(call.tested);
    long long at_ms = 1000;
    auto const deliver = [&](str const& data) {
        call.tested.process_rtp_data(data, ip_port(str('\1', 4), 4000), false, rtimestamp(at_ms * 1000000));
    };
    auto const deliver_good = [&] {
        at_ms += 10;
        deliver(peer.packet());
        FUZZ_CHECK(call.tested.output_available());
        bool talk_spurt = false;
        FUZZ_CHECK(call.tested.get_samples(talk_spurt) == peer.plain());
    };
    deliver_good();
    while (input.more(60)) {
        unsigned const what = input.byte(), parameter = input.byte();
        switch (what % step_count) {
            case good: deliver_good(); break;
            case foreign: deliver(input.piece()); break;
            case damaged: {
                str bad = srtp_sender(peer).packet();
                int const at = 2 + static_cast<int>(parameter) % (header_bytes + payload_bytes - 2);
                bad.set_character(at, static_cast<unsigned char>(bad[at] ^ (1 + what / step_count)));
                deliver(bad);
                break;
            }
            case truncated:
                deliver(srtp_sender(peer).packet().leftstr(static_cast<int>(parameter) % 172));
                break;
            default:
                peer.key(str(static_cast<unsigned char>(parameter), 30));
                peer.key_receiver(call.tested);
                break;
        }
        FUZZ_CHECK(!call.tested.output_available());
    }
    call.report();
}
