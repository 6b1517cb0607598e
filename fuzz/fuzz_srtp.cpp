// Secure RTP: what a peer has protected must be played whatever else arrives, and nothing else may be.
//
// First byte: tag length (bits 1-0), rollover counter of the first packet (3-2; with the extension 0), a stream that
// was plain before (4), length of the MKI (7-5). Each step: 1 byte of what to do, 1 byte of parameter, for foreign
// packets a piece.

#include "fuzz/fuzz_target.h"
#include "lib/extensions.h"
#include "srtp/srtp.h"

namespace {

constexpr int header_bytes = 12;
constexpr int payload_bytes = 160;

/// A peer of the channel: the module's own sender, whose agreement with others is tested elsewhere.
class protecting_peer {
public:
    protecting_peer(int tag_length, str const& mki, std::uint32_t rollover_counter)
        : trailer{tag_length, mki}, material(str('k', 30)), sequence(rollover_counter << 16 | 65500) {
        key(material);
    }

    void key(str const& chosen) {
        material = chosen;
        srtp_key(tx, material, ssrc);
    }
    /// A new stream; its rollover counter begins at 0 (RFC 3711 section 3.3.1).
    void move() {
        ssrc = str(static_cast<unsigned char>(ssrc[0] + 1), 4);
        sequence %= 0xFFFF;  // the first number is not 0
        key(material);
    }
    void key_receiver(channel& receiver, bool sending_too = true) const {
        receiver.set_srtp(material, sending_too ? material : str::null, trailer.tag_length, trailer.mki);
    }

    /// The next packet, of samples that are its number.
    str packet() {
        sequence++;
        str payload = plain();
        return srtp_protect(tx, header(), payload, sequence, trailer);
    }
    /// The next packet, in the clear.
    str plain_packet() {
        sequence++;
        return header() + plain();
    }
    str plain() const { return str(static_cast<unsigned char>(sequence), payload_bytes); }

private:
    str header() const {
        unsigned char const high = static_cast<unsigned char>(sequence >> 8);
        unsigned char const low = static_cast<unsigned char>(sequence);
        return str(0x80, 0, high, low) + str(high, low, 0, 0) + ssrc;
    }

    srtp_trailer trailer;
    str material;
    str ssrc{"PEER"};
    srtp_ctx tx;
    std::uint32_t sequence;  // wraps soon
};

}  // namespace

FUZZ_TARGET(srtp) {
    enum step { good, foreign, damaged, truncated, rekey, forged_takeover, new_stream, receive_key_again, step_count };
    constexpr long long silence_ms = 110;  // another SSRC may take over
    constexpr int tag_lengths[] = {10, 4, 20, 8};
    unsigned const shape = input.byte();
    extensions.playout = false;  // what is heard is compared with what was sent
    fuzz_call call;
    protecting_peer peer(tag_lengths[shape % 4], str('m', static_cast<int>(shape >> 5)),
                         extensions.srtp ? 0 : shape >> 2 & 3);
    bool const plain_at_first = shape & 16;
    long long at_ms = 1000;
    auto const deliver = [&](str const& data) {
        call.tested.process_rtp_data(data, ip_port(str('\1', 4), 4000), false, rtimestamp(at_ms * 1000000));
    };
    auto const deliver_and_hear = [&](str const& data) {
        at_ms += 10;
        deliver(data);
        FUZZ_CHECK(call.tested.output_available());
        bool talk_spurt = false;
        FUZZ_CHECK(call.tested.get_samples(talk_spurt) == peer.plain());
    };
    if (plain_at_first) {
        deliver_and_hear(peer.plain_packet());
    }
    peer.key_receiver(call.tested, !plain_at_first);
    deliver_and_hear(peer.packet());
    while (input.more(60)) {
        unsigned const what = input.byte(), parameter = input.byte();
        switch (what % step_count) {
            case good: deliver_and_hear(peer.packet()); break;
            case foreign: deliver(input.piece()); break;
            case damaged: {
                str bad = protecting_peer(peer).packet();
                int const at = 2 + static_cast<int>(parameter) % (header_bytes + payload_bytes - 2);
                bad.set_character(at, static_cast<unsigned char>(bad[at] ^ (1 + what / step_count)));
                deliver(bad);
                break;
            }
            case truncated: deliver(protecting_peer(peer).packet().leftstr(static_cast<int>(parameter) % 172)); break;
            case forged_takeover:  // no tag is right; the stream that was interrupted goes on
                at_ms += silence_ms;
                deliver(str(0x80, 0, 0, 1) + str(static_cast<unsigned char>(parameter), 172));
                FUZZ_CHECK(!call.tested.output_available());
                deliver_and_hear(peer.packet());
                break;
            case new_stream:
                at_ms += silence_ms;
                peer.move();
                deliver_and_hear(peer.packet());
                break;
            case receive_key_again: peer.key_receiver(call.tested, false); break;
            default:
                peer.key(str(static_cast<unsigned char>(parameter), 30));
                peer.key_receiver(call.tested);
                break;
        }
        FUZZ_CHECK(!call.tested.output_available());
    }
    call.report();
}
