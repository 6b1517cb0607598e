#include "tools/protocol/codecs.h"

#include <array>
#include <string>

namespace protocol {
namespace {

constexpr std::array<codec_info, 8> table{{{0, "linear", 96},
                                           {1, "pcmu", 0},
                                           {2, "pcma", 8},
                                           {3, "g729", 18},
                                           {4, "gsm", 3},
                                           {5, "g722", 9},
                                           {6, "g726", 102},
                                           {7, "telephone-event", 101}}};

struct other_name {
    std::string_view alias;
    std::string_view name;
};

constexpr std::array<other_name, 9> aliases{{{"l16", "linear"},
                                             {"g711u", "pcmu"},
                                             {"ulaw", "pcmu"},
                                             {"g711a", "pcma"},
                                             {"alaw", "pcma"},
                                             {"g729a", "g729"},
                                             {"g726-32", "g726"},
                                             {"event", "telephone-event"},
                                             {"dtmf", "telephone-event"}}};

std::string lower_case(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    return lower;
}

}  // namespace

std::span<codec_info const> codecs() {
    return table;
}

codec_info const* find_codec(std::string_view name_or_number) {
    std::string name = lower_case(name_or_number);
    for (other_name const& other : aliases)
        if (other.alias == name)
            name = other.name;
    for (codec_info const& codec : table)
        if (codec.name == name || std::to_string(codec.number) == name)
            return &codec;
    return nullptr;
}

}  // namespace protocol
