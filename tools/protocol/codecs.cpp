#include "tools/protocol/codecs.h"

#include <string>

namespace protocol {
namespace {

struct other_name {
    std::string_view alias;
    int number;
};

constexpr other_name aliases[] = {{"l16", codec_number::linear},          {"g711u", codec_number::pcmu},
                                  {"ulaw", codec_number::pcmu},           {"g711a", codec_number::pcma},
                                  {"alaw", codec_number::pcma},           {"g729a", codec_number::g729},
                                  {"g726-32", codec_number::g726},        {"event", codec_number::telephone_event},
                                  {"dtmf", codec_number::telephone_event}};

std::string lower_case(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    return lower;
}

}  // namespace

codec_format const* find_codec(std::string_view name_or_number) {
    std::string name = lower_case(name_or_number);
    for (other_name const& other : aliases)
        if (other.alias == name)
            name = std::to_string(other.number);
    for (codec_format const& codec : codec_formats)
        if (codec.name == name || std::to_string(codec.number) == name)
            return &codec;
    return nullptr;
}

codec_choice usual_choice(codec_format const& codec) {
    return {static_cast<std::uint8_t>(codec.number), static_cast<std::uint8_t>(codec.payload_type)};
}

}  // namespace protocol
