#include "bench/far_end.h"

#include "lib/protocol.h"
#include "lib/tlv.h"
#include "lib/wire.h"

namespace {

constexpr unsigned char payload_type = 0;
constexpr unsigned source = 0xFA12E9D;  // SSRC

}  // namespace

far_end::far_end(std::uint64_t seed, int codec) : world(*this, {.seed = seed}) {
    using namespace protocol;
    auto const command = [&](int tag, str const& fields) {
        world.command(cmd_get_tlv_str(tag, cmd_get_tlv_short(call_field, 0) + fields));
    };
    auto const number = static_cast<unsigned char>(codec);
    unsigned char const to_send[] = {payload_type, number}, to_map[] = {number, payload_type};
    command(cmd_open::tag, cmd_get_tlv_str(cmd_open::call_id, str("listener")));
    command(cmd_media::tag, cmd_get_tlv_str(cmd_media::send_codec, str(to_send, sizeof to_send)) +
                                cmd_get_tlv_str(cmd_media::codec_map, str(to_map, sizeof to_map)) +
                                cmd_get_tlv_address(cmd_media::rtp_dest, ip_port(str(203, 0, 113, 9), address.port)));
    command(cmd_tdm_channel::tag, cmd_get_tlv_short(cmd_tdm_channel::slot, 0));
    world.run_ms(100);  // the first packet of the process tells its port
    began = world.now();
}

void far_end::sent(sim::endpoint const& from, sim::endpoint const& to, std::string_view) {
    if (to == address)
        device = from;
}

std::string far_end::rtp_packet(int number, int timestamp, std::string_view payload) {
    std::string packet(12, '\0');
    auto* const header = reinterpret_cast<unsigned char*>(packet.data());
    header[0] = 0x80;
    header[1] = payload_type;
    wire::put16(header + 2, static_cast<unsigned>(number + 1) & 0xFFFF);
    wire::put32(header + 4, static_cast<unsigned>(timestamp));
    wire::put32(header + 8, source);
    return packet.append(payload);
}
