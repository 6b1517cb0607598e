#include "tools/fxsctl/codec_options.h"

#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/failure.h"

namespace fxsctl {
namespace {

constexpr int shortest_ptime_ms = 10;
constexpr int longest_ptime_ms =
    200;  // the jitter buffer of a common peer; more makes no sense on a telephone

}  // namespace

void add_codec_options(CLI::App& sub, codec_options& options) {
    sub.add_option("--codec", options.codec,
                   "Codec to send: linear, pcmu, pcma, g729, gsm, g722, g726, or its number 0 to 6");
    sub.add_option("--pt", options.payload_type,
                   "RTP payload type to send (default: the usual one of the codec)")
        ->check(payload_type());
    sub.add_option("--event-pt", options.event_payload_type,
                   "Payload type of telephone events, sent and received; without it digits go in-band")
        ->check(CLI::Range(1, 127));
    sub.add_option("--map", options.map,
                   "PT=CODEC: accept this payload type from the peer (repeatable; default: the one sent)");
    sub.add_option("--ptime", options.ptime_ms, "Packet time in ms, a multiple of 10 (default 20)")
        ->check(CLI::Range(shortest_ptime_ms, longest_ptime_ms));
}

void apply(codec_options const& options, protocol::media_command& command) {
    if (options.codec.empty()) {
        if (options.payload_type || options.event_payload_type || options.ptime_ms || !options.map.empty()) {
            throw failure(exit_code::usage,
                          "--pt, --event-pt, --map and --ptime need --codec: the process sets all of them "
                          "together, and "
                          "without a codec it would fall back to number 0");
        }
        return;
    }
    protocol::codec_info const& codec = codec_value("--codec", options.codec);
    if (codec.number == protocol::telephone_event_codec)
        throw failure(exit_code::usage, "--codec: telephone-event can only be received; use --event-pt");
    if (options.ptime_ms.value_or(20) % 10 != 0)
        throw failure(exit_code::usage, "--ptime: audio comes in blocks of 10 ms, give a multiple of 10");
    command.send = {codec.number, options.payload_type.value_or(codec.payload_type)};
    command.event_payload_type = options.event_payload_type;
    command.ptime_ms = options.ptime_ms;
    for (std::string const& entry : options.map)
        command.map.push_back(map_entry_value("--map", entry));
    if (options.map.empty())
        command.map.push_back(*command.send);
}

}  // namespace fxsctl
