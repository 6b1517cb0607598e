#include "tools/doctor/call_texts.h"

#include <iterator>

#include "lib/protocol.h"

namespace doctor {
namespace {

std::string codec_name(int codec) {
    return codec >= 0 && codec < static_cast<int>(std::size(protocol::codec_formats))
               ? protocol::codec_formats[codec].name
               : "CODEC";
}

std::string usual_codec(int payload_type) {
    for (protocol::codec_format const& one : protocol::codec_formats)
        if (one.payload_type == payload_type)
            return one.name;
    return "CODEC";
}

}  // namespace

std::string call_option(call_facts const& call) {
    return "--call " + std::to_string(call.call);
}

std::string map_cure(call_facts const& call, int payload_type) {
    std::string text = "fxsctl media " + call_option(call) + " --codec ";
    text += call.set.send_codec >= 0 ? codec_name(call.set.send_codec) : "pcma";
    for (auto const& [type, codec] : call.set.accepted)
        if (codec != protocol::codec_number::telephone_event)
            text += " --map " + std::to_string(type) + "=" + codec_name(codec);
    if (!call.set.accepted.contains(payload_type))
        text += " --map " + std::to_string(payload_type) + "=" + usual_codec(payload_type);
    return text;
}

}  // namespace doctor
