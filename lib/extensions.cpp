#include "lib/extensions.h"

extension_set extensions;

namespace {

constexpr struct {
    char const* name;
    char const* what;
    bool extension_set::*flag;
} table[] = {
    {"dtmf", "digits in band and from telephone events are clean sines at the level that RFC 4733 names",
     &extension_set::dtmf},
    {"g722", "G.722 at the level of other equipment, its lower band carrying the line's 8 kHz as it is",
     &extension_set::g722},
    {"srtp", "secure packets are checked before they change anything, replayed ones refused; AES-256 and AES-GCM",
     &extension_set::srtp},
    {"playout", "play-out follows the network: no more delay than packets need, lost speech made up, no gap at drift",
     &extension_set::playout},
    {"rtcp", "reports tell losses, times and delays as RFC 3550 and RFC 3611 have them, and rate the call",
     &extension_set::rtcp},
    {"detect", "keys in a line's audio are told to call control, and sent as events where those are on, not as audio",
     &extension_set::detect},
};

bool switch_on(extension_set& set, str const& name) {
    bool known = false;
    for (auto const& [own_name, what, flag] : table)
        if (name == own_name || name == "all")
            known = set.*flag = true;
    return known;
}

}  // namespace

bool extension_set::add(str const& list) {
    int const comma = list.find(",");
    if (comma < 0)
        return switch_on(*this, list);
    return switch_on(*this, list.leftstr(comma)) && add(list.substr(comma + 1));
}

str extension_set::help() {
    str text;
    for (auto const& [name, what, flag] : table)
        text += str::sprintf("%S: %S\n", name, what);
    return text;
}
