#include "phone/media_channels.h"

#include <cstring>
#include <string_view>

#include "phone/libre.h"
#include "phone/private_address.h"

namespace fxsphone {

namespace {

/// Where RTCP goes without other knowledge (RFC 3550 section 11).
fxsmedia::endpoint port_above(fxsmedia::endpoint one) {
    one.port++;
    return one;
}

}  // namespace

void media_channels::open(leg& one) {
    one.on_process = true;
    one.rtp_port = one.asked_rtp_port = 0;
    one.heard = {};
    process.send(fxsmedia::open_command{.call = one.channel, .call_id = "fxsphone"});
}

void media_channels::close(leg& one) {
    one.rtp_port = one.asked_rtp_port = 0;
    if (one.on_process)
        process.send(fxsmedia::end_command{.call = one.channel});
    one.on_process = false;
}

void media_channels::put_on_line(leg const& one, bool on) {
    if (on)
        process.send(fxsmedia::tdm_command{.call = one.channel, .line = one.line});
    else
        process.send(fxsmedia::tdm_command{.call = one.channel});
}

void media_channels::play(leg const& one, tone sound) {
    if (sound == tone::none)
        process.send(fxsmedia::play_command{.call = one.channel});
    else
        process.send(fxsmedia::play_command{.call = one.channel, .kind = static_cast<int>(sound), .set = tone_set});
}

void media_channels::send_key(leg const& one, char key) {
    constexpr std::string_view keys = "0123456789*#";
    std::size_t const event = keys.find(key);
    if (event != keys.npos)
        process.send(fxsmedia::dtmf_command{.call = one.channel, .digit = static_cast<int>(event)});
}

void media_channels::begin_stream(leg& one) {
    std::uint32_t const drawn = rand_u32();
    std::memcpy(one.ssrc, &drawn, sizeof one.ssrc);
    one.srtp.reset();
    one.offered.reset();
    one.source.reset();
}

void media_channels::follow_plan(leg& one, media_plan const& plan, bool keys_as_events) {
    if (plan.rtp && one.offered != plan.rtp) {
        one.offered = plan.rtp;
        one.source.reset();
    }
    bool const moved = plan.rtp && one.source;
    fxsmedia::media_command command{.call = one.channel,
                                    .send = plan.send,
                                    .map = plan.map,
                                    .ptime = plan.ptime_ms,
                                    .event_pt = keys_as_events ? plan.event_pt : std::nullopt,
                                    .ssrc = fxsmedia::byte_view(one.ssrc),
                                    .rtp = moved ? one.source : plan.rtp,
                                    .rtcp = moved ? port_above(*one.source) : plan.rtcp,
                                    .xr = plan.xr};
    if (one.srtp != plan.srtp) {  // the same keys again would begin the streams anew
        command.srtp_rx_key = plan.srtp ? fxsmedia::byte_view(plan.srtp->receive) : fxsmedia::byte_view();
        command.srtp_tx_key = plan.srtp ? fxsmedia::byte_view(plan.srtp->send) : fxsmedia::byte_view();
        command.srtp_tag = plan.srtp ? plan.srtp->tag_bytes : 0;
        one.srtp = plan.srtp;
    }
    process.send(command);
}

void media_channels::follow_source(leg& one, fxsmedia::endpoint const& source) {
    if (!one.offered || one.source || *one.offered == source || !is_private(*one.offered))
        return;
    one.source = source;
    process.send(fxsmedia::media_command{.call = one.channel, .rtp = source, .rtcp = port_above(source)});
}

}  // namespace fxsphone
