#include <cerrno>

#include "lib/protocol.h"
#include "lib/rtcp_numbers.h"
#include "lib/tlv.h"
#include "media/tcp_framing.h"
#include "tests/sim/driver.h"

namespace sim {

using namespace protocol;

bytes driver::random_bytes(int n) {
    bytes all;
    for (; n > 0; n--)
        all += static_cast<char>(dice.below(256));
    return all;
}

/// A far end, a stranger of either family, or the device itself.
endpoint driver::anywhere() {
    int const which = dice.below(32);
    if (endpoint const& far = fars[which % far_count].planned().rtp; which < 16 && far.port != 0)
        return far;
    if (which >= 28)
        return device_v4.with_port(rtp_ports[which % far_count]);
    return which % 2 != 0 ? v6(9, 5000 + which) : v4(203, 0, 113, 9, 5000 + which);
}

str driver::any_field(field_format const& field) {
    auto const number = [&] {
        int const highest = field.highest == 0xFFFF && field.fallback == 0 ? 31 : field.highest;
        return dice.chance(900) ? dice.between(field.lowest, highest) : static_cast<int>(dice.word());
    };
    switch (field.kind) {
        case value_kind::number:
        case value_kind::signed_number: return cmd_get_tlv_short(field, number());
        case value_kind::flag: return cmd_get_tlv_short(field, dice.below(2));
        case value_kind::byte: return cmd_get_tlv_str(field, str(static_cast<unsigned char>(number()), 1));
        case value_kind::signed_long: return cmd_get_tlv_long(field, static_cast<int>(dice.word()));
        case value_kind::text:
            if (field.tag == cmd_media::xr_mode)
                return cmd_get_tlv_str(field, any_xr_mode());
            return cmd_get_tlv_str(field, to_str(random_bytes(dice.below(20))));
        case value_kind::data: return cmd_get_tlv_str(field, to_str(random_bytes(dice.below(200))));
        case value_kind::secret: return cmd_get_tlv_str(field, to_str(random_keys(1).key));
        case value_kind::endpoint: {
            endpoint const to = anywhere();
            return cmd_get_tlv_address(field, ip_port(to_str(to.address_bytes()), to.port));
        }
        case value_kind::codec_to_send:
        case value_kind::codec_to_map: break;
    }
    format const& f = formats[dice.below(7)];
    bool const own = dice.chance(800);
    auto const type = static_cast<unsigned char>(own ? f.payload_type : dice.below(256)),
               codec = static_cast<unsigned char>(own ? f.codec : dice.below(10));
    return cmd_get_tlv_str(field, field.kind == value_kind::codec_to_send ? str(type, codec) : str(codec, type));
}

/// Of the protocol's commands, with fields that belong to it, of values in and out of their ranges.
void driver::any_command(int) {
    message_format const& format = command_formats[dice.below(std::size(command_formats))];
    tunnelling |= format.tag == cmd_tunnel::tag;
    str fields;
    for (field_format const& field : format.fields)
        while (dice.below(4) > 0) {
            fields += any_field(field);
            if (!field.repeats)
                break;
        }
    command(format.tag, fields);
}

void driver::to_channel(bool rtcp, str const& packet) {
    endpoint const from = anywhere(), &device = from.size == 16 ? device_v6 : device_v4;
    w->transmit(from, device.with_port(rtp_ports[dice.below(far_count)] + rtcp), view(packet));
}

/// Some packets in a row, numbers going on or jumping, of two senders.
void driver::any_rtp(int) {
    int const type = dice.chance(800) ? formats[dice.below(7)].payload_type : dice.below(256);
    if (dice.chance(200))
        any_sequence = static_cast<int>(dice.word());
    str const sender(dice.chance(800) ? 'A' : 'B', 4), payload('U', dice.below(256));
    for (int n = dice.below(8); n >= 0; n--, any_sequence++)
        to_channel(false, be16(0x8000 | type) + be16(any_sequence) + be16(any_sequence) + be16(0) + sender + payload);
}

/// A compound of one packet with any body, or no RTP and RTCP at all.
void driver::any_packet(int) {
    bool const rtcp = dice.chance(700);
    str const body = to_str(random_bytes(4 * dice.below(32)));
    int const type = rtcp::packet_type::sender_report + dice.below(8);
    str const header = be16(0x8100 | type) + be16(body.length() / 4);
    to_channel(rtcp, dice.chance(800) ? header + body : body);
}

void driver::any_stream(int) {
    if (streams == 0)
        return;
    int const stream = 1 + dice.below(streams);
    str const data = to_str(random_bytes(dice.below(200)));
    switch (dice.below(6)) {
        case 0: w->stream_close(stream); break;
        case 1: w->stream_stall(stream, dice.chance(500)); break;
        case 2: w->stream_send(stream, view(data)); break;
        default: w->stream_send(stream, view(frame_for_tcp(data))); break;
    }
}

void driver::any_device(int) {
    int const line = dice.below(line_count);
    bytes const data = random_bytes(dice.below(200));
    std::int16_t samples[300];
    std::fill(std::begin(samples), std::end(samples), static_cast<std::int16_t>(dice.word()));
    switch (dice.below(5)) {
        case 0: w->hang_up(dice.below(line_count + 1), dice.chance(500)); break;
        case 1: w->say(line, samples, dice.below(300)); break;
        case 2: w->driver_text(data); break;
        case 3: w->signal_bytes(data); break;
        default: w->set_time_of_day(static_cast<std::int64_t>(dice.word()) << 31); break;
    }
}

void driver::any_failure(int) {
    constexpr int errors[] = {EAGAIN, EINTR, ENOMEM, ECONNREFUSED, EBADF, EIO, EADDRINUSE, EMFILE};
    auto const which = static_cast<call>(dice.below(static_cast<int>(call::count)));
    w->fail(which, errors[dice.below(8)], dice.between(1, 40));
}

}  // namespace sim
