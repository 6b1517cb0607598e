#include "tests/sim/far_end.h"

#include <cstring>

#include "lib/bytes.h"
#include "lib/extensions.h"
#include "lib/pcm.h"
#include "lib/rtcp_numbers.h"
#include "lib/wire.h"
#include "media/rtp_header.h"
#include "media/rtp_sequence.h"
#include "media/tcp_framing.h"
#include "srtp/srtp.h"

namespace sim {

using namespace rtcp::packet_type;

format const formats[7] = {{codec::linear, 98, 320, "linear"},   {codec::mu_law, 0, 160, "PCMU"},
                           {codec::a_law, 8, 160, "PCMA"},       {codec::g729, 18, FXSMEDIA_G729 ? 20 : 160, "G.729"},
                           {codec::gsm_full_rate, 3, 33, "GSM"}, {codec::g722_64, 9, 160, "G.722"},
                           {codec::g726_32, 97, 80, "G.726"}};

format const* find_format(int payload_type) {
    for (format const& f : formats)
        if (f.payload_type == payload_type)
            return &f;
    return nullptr;
}

namespace {

constexpr std::int64_t report_period = 2 * second;
constexpr int frame_bytes = 6;  // in front of a packet on a stream
constexpr int round_trip_limit_ms = 60;

}  // namespace

void far_end::begin(world& home, int number, plan const& wanted, ear_and_mouth& ears) {
    w = &home;
    audio = &ears;
    p = wanted;
    index = number;
    on = first = true;
    digits = 0;
    streams[0] = streams[1] = 0;
    last_event = last_report_sent = 0;
    generation = (generation + 1) & 0xFFFF;
    rekey(p.in, p.out, p.process_sequence);
    next = w->now();
    next_report = next + report_period / 2;
    w->at(next, generation << 8 | index);
}

void far_end::end() {
    on = false;
    coder.clear();
    keys.rx = keys.tx = srtp_ctx();
    p = plan();
    unread[0] = unread[1] = bytes();
}

void far_end::rekey(protection const& in, protection const& out, std::uint32_t process_sequence) {
    p.in = in;
    p.out = out;
    p.process_sequence = process_sequence;
    srtp_key(keys.rx, to_str(in.key), str::null);
    srtp_key(keys.tx, to_str(out.key), be32(p.ssrc));
    keys.rx.roc = process_sequence >> 16;
    keyed_at = w->now();
}

void far_end::wake(int token) {
    if (!on || token >> 8 != generation)
        return;
    str pcm;
    for (int done_ms = 0; done_ms < p.ptime_ms; done_ms += pcm::block_ms) {
        std::int16_t block[block_samples] = {};
        audio->say(index, block);
        pcm.append(reinterpret_cast<unsigned char const*>(block), sizeof block);
    }
    str payload = coder.encode(p.talk->codec, pcm);
    if (!payload.empty())
        send_packet(p.talk->payload_type, payload, first, p.timestamp);
    p.timestamp += static_cast<std::uint32_t>(p.ptime_ms * 8);
    first = false;
    if (next >= next_report) {
        send_report();
        next_report += report_period;
    }
    next += p.ptime_ms * (ms + ms / 1000000 * p.ppm);
    w->at(next, token);
}

void far_end::send_event(int digit) {
    for (int step = 1; step <= 5; step++) {
        str payload = str(static_cast<unsigned char>(digit), static_cast<unsigned char>(step < 3 ? 10 : 0x8A)) +
                      be16(std::min(step, 3) * 400);
        send_packet(event_type, payload, step == 1, p.timestamp);
    }
}

void far_end::send_packet(int payload_type, str& payload, bool marker, std::uint32_t timestamp) {
    rtp_header header;
    header.marker = marker;
    header.payload_type = payload_type;
    header.sequence = static_cast<std::uint16_t>(p.sequence);
    header.timestamp = timestamp;
    header.ssrc = be32(p.ssrc);
    transmit(true, p.out.key.empty() ? header.build(payload)
                                     : srtp_protect(keys.tx, header.build(str::null), payload, p.sequence,
                                                    {p.out.tag_bytes, str::null}));
    p.sequence++;
    sent++;
}

/// A sender report without block, and a receiver reference time (RFC 3611 section 4.4) in an XR packet.
void far_end::send_report() {
    std::uint64_t const now = ntp();
    last_report_sent = static_cast<std::uint32_t>(now);
    str const time = be32(static_cast<std::uint32_t>(now >> 16)) + be32(static_cast<std::uint32_t>(now << 16));
    str packet = str(0x80, 0xC8, 0, 6) + be32(p.ssrc) + time + be32(p.timestamp) +
                 be32(static_cast<std::uint32_t>(sent)) + be32(0) + str(0x80, 0xCF, 0, 4) + be32(p.ssrc) +
                 str('\x04', '\0', '\0', '\x02') + time;
    transmit(false, p.out.key.empty() ? packet : srtcp_protect(keys.tx, packet, 1, str::null));
}

void far_end::transmit(bool rtp, str const& packet) {
    if (!p.streams)
        return w->transmit(rtp ? p.rtp : rtcp_of(p.rtp), rtp ? p.device_rtp : rtcp_of(p.device_rtp), view(packet));
    if (int const stream = streams[!rtp])
        w->stream_send(stream, view(frame_for_tcp(packet)), 5 * ms);
}

void far_end::arrived(endpoint const& to, std::string_view data) {
    to == p.rtp ? receive_rtp(to_str(data)) : receive_rtcp(to_str(data));
}

void far_end::stream_data(int stream, std::string_view data) {
    int const side = stream != streams[0];
    bytes& pending = unread[side];
    pending += data;
    for (std::size_t size; pending.size() >= frame_bytes; pending.erase(0, size + frame_bytes)) {
        auto const* const frame = reinterpret_cast<unsigned char const*>(pending.data());
        size = wire::get16(frame + 4);
        if (wire::get16(frame) != 0x300 || wire::get16(frame + 2) != size + 2)
            violated("a stream that is not framed");
        if (pending.size() < size + frame_bytes)
            return;
        arrived(p.rtp.with_port(p.rtp.port + side), std::string_view(pending).substr(frame_bytes, size));
    }
}

void far_end::receive_rtp(str const& packet) {
    rtp_header const header = rtp_header::parse(packet);
    str payload = packet.substr(header.bytes);
    if (!p.in.key.empty()) {
        std::uint32_t sequence = extend_sequence(header.sequence, p.process_sequence);
        if (!srtp_unprotect(keys.rx, packet, header.bytes, sequence, payload, {p.in.tag_bytes, str::null})) {
            if (w->now() > keyed_at + second)
                violated("a packet with a wrong tag", header.sequence);
            return;
        }
        p.process_sequence = std::max(p.process_sequence, sequence);
    }
    received++;
    if (header.payload_type == event_type) {
        if (payload[1] >= 0x80 && header.timestamp != last_event) {
            last_event = header.timestamp;
            digits++;
        }
    } else if (format const* const f = find_format(header.payload_type)) {
        str const pcm = coder.decode(f->codec, payload);
        for (int at = 0; at + pcm::block_bytes <= pcm.length(); at += pcm::block_bytes) {
            std::int16_t block[block_samples];
            std::memcpy(block, pcm.cbuffer() + at, sizeof block);
            audio->hear(index, block);
        }
    }
}

/// Sender report, source description, extended report; the round trip that its own last report allows to compute.
void far_end::receive_rtcp(str const& packet) {
    str plain = packet;
    if (!p.in.key.empty() && !srtcp_unprotect(keys.rx, packet, plain, {10, str::null}))
        violated("a report that is not encrypted");
    if (!p.in.key.empty() && w->now() < keyed_at + second)
        return;
    unsigned char const* const report = plain.cbuffer();
    int at = 0, order = 0;
    for (; at < plain.length(); at += 4 * wire::get16(report + at + 2) + 4, order++)
        if (constexpr int types[] = {sender_report, source_description, extended_report, -1};
            plain[at + 1] != types[std::min(order, 3)] &&
            !(extensions.rtcp && order == 0 && plain[at + 1] == receiver_report))
            violated("a compound packet of other parts", plain[at + 1]);
    if (at != plain.length() || order < 2)
        violated("a compound packet of another length", plain.length());
    int const lsr_at = 4 * wire::get16(report + 2) + 4 - 8;
    std::uint32_t const lsr = wire::get32(report + lsr_at);
    if (!p.round_trip_known || !(plain[0] & 1) || lsr == 0 || lsr != last_report_sent)
        return;
    auto const round_trip =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(ntp()) - lsr - wire::get32(report + lsr_at + 4));
    round_trips++;
    if (round_trip < -12 * 65536 / 1000 || round_trip > round_trip_limit_ms * 65536 / 1000)
        violated("a round trip of so many 1/65536 s", round_trip);
}

}  // namespace sim
