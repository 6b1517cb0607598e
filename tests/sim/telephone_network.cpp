#include "tests/sim/telephone_network.h"

#include <cstdio>
#include <cstdlib>

#include "control/call_led.h"
#include "lib/protocol.h"
#include "lib/tlv.h"
#include "media/channel.h"

namespace sim {

using namespace protocol;

namespace {

constexpr std::uint64_t most_memory = 8u << 20;  // bytes that calls may make the process hold

/// What is in use when no world is there. The first world leaves behind what static objects hold.
std::uint64_t memory_at_rest() {
    static bool warm = false;
    if (!warm) {
        surroundings nobody;
        world{nobody};
        warm = true;
    }
    channels.clear();  // of tests that need no world
    return world::pool_in_use();
}

/// Sub-fields in the order of the protocol's table, none left out that must be there.
bool well_formed(message_format const& format, str fields) {
    auto expected = format.fields.begin();
    for (tlv field; !fields.empty(); ++expected) {
        if (!field.take(fields))
            return false;
        while (expected != format.fields.end() && expected->tag != field.tag && expected->optional)
            ++expected;
        if (expected == format.fields.end() || expected->tag != field.tag)
            return false;
    }
    return std::all_of(expected, format.fields.end(), [](auto const& rest) { return rest.optional; });
}

}  // namespace

void violated(std::string_view what, long long value) {
    std::fflush(stdout);
    std::fprintf(stderr, "%.*s (%lld)", static_cast<int>(what.size()), what.data(), value);
    if (running)
        std::fprintf(stderr, " after %.6f s", static_cast<double>(running->now()) / second);
    std::fprintf(stderr, "\n");
    std::abort();
}

void telephone_network::start(settings const& chosen) {
    memory_before = memory_at_rest();
    w.emplace(*this, chosen);
}

void telephone_network::finish() {
    w->end_faults();
    run(64 * ms);  // a loopback test holds up the commands behind it
    set_led1(0);
    w->end_all_calls();
    run(20 * ms);
    if (!w->idle())
        violated("something is left of ended calls");
    w.reset();
    if (world::pool_in_use() != memory_before)
        violated("bytes left in use", static_cast<long long>(world::pool_in_use() - memory_before));
}

void telephone_network::run(std::int64_t ns) {
    w->run(ns);
    if (char const* const trouble = w->trouble())
        violated(trouble);
    if (world::pool_in_use() > memory_before + most_memory)
        violated("so many bytes in use", static_cast<long long>(world::pool_in_use()));
}

void telephone_network::report(std::string_view datagram) {
    str rest = to_str(datagram);
    tlv message;
    if (!message.take(rest) || !rest.empty())
        violated("a report of another length", static_cast<long long>(datagram.size()));
    auto const known = std::find_if(std::begin(report_formats), std::end(report_formats),
                                    [&](auto const& format) { return format.tag == message.tag; });
    if (known == std::end(report_formats))
        violated("a report of no known kind", message.tag);
    if (!known->plain_text && !well_formed(*known, message.value))
        violated("a report with other fields", message.tag);
    if (message.tag == report_open::tag)
        note_ports(message.value);
    reported(message.tag, message.value);
}

void telephone_network::sent(endpoint const& from, endpoint const& to, std::string_view datagram) {
    constexpr std::size_t rtp_header_bytes = 12;
    if (from.port == 0 || to.port == 0)
        violated("a packet from or to no port");
    if (!tunnelling && (datagram.size() < rtp_header_bytes || (datagram[0] & 0xC0) != 0x80))
        violated("a packet that is neither RTP nor RTCP", static_cast<long long>(datagram.size()));
}

void telephone_network::note_ports(str value) {
    int numbers[3] = {};  // call, ports of RTP and RTCP
    tlv field;
    for (int& number : numbers)
        if (field.take(value))
            number = str2int16(field.value);
    auto const& [call, rtp, rtcp] = numbers;
    if (call >= far_count || rtp % 2 != 0 || rtcp != (rtp == 0 ? 0 : rtp + 1))
        violated("a channel with these ports", rtp);
    rtp_ports[call] = rtp;
}

// ---- call control

void telephone_network::command(int tag, str const& fields) {
    w->command(cmd_get_tlv_str(tag, fields));
}

void telephone_network::call_command(int tag, int index, str const& fields) {
    command(tag, cmd_get_tlv_short(call_field, index) + fields);
}

str telephone_network::codec_fields(format const& codec, format const* accepted, int count, int ptime_ms,
                                    std::uint32_t ssrc, bool events) {
    auto const byte = [](int value) { return static_cast<unsigned char>(value); };
    str fields = cmd_get_tlv_str(cmd_media::send_codec, str(byte(codec.payload_type), byte(codec.codec)));
    for (format const* f = accepted; f < accepted + count; f++)
        fields += cmd_get_tlv_str(cmd_media::codec_map, str(byte(f->codec), byte(f->payload_type)));
    if (events)
        fields += cmd_get_tlv_str(cmd_media::event_payload_type, str(byte(event_type), 1));
    return fields + cmd_get_tlv_short(cmd_media::ptime, ptime_ms) +
           cmd_get_tlv_long(cmd_media::ssrc, static_cast<int>(ssrc));
}

str telephone_network::destination_fields(endpoint const& rtp, bool streams) {
    auto const field = [&](int tag, int port) {
        return cmd_get_tlv_address(tag, ip_port(to_str(rtp.address_bytes()), port));
    };
    return field(cmd_media::rtp_dest, rtp.port) + field(cmd_media::rtcp_dest, rtp.port + 1) +
           cmd_get_tlv_short(cmd_media::tcp, streams);
}

str telephone_network::key_fields(protection const& in, protection const& out) {
    return cmd_get_tlv_str(cmd_media::srtp_rx_key, to_str(in.key)) +
           cmd_get_tlv_str(cmd_media::srtp_tx_key, to_str(out.key)) +
           cmd_get_tlv_str(cmd_media::srtp_tag, str(static_cast<unsigned char>(out.tag_bytes), 1));
}

}  // namespace sim
