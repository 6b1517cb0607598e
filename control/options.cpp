#include "control/options.h"

#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/address.h"
#include "lib/datagram.h"
#include "lib/extensions.h"

namespace {

/// One option: with `take_value` it consumes the next argument, else `set` is all it does.
struct option {
    char const* name;
    void (*take_value)(options&, char const* value);
    void (*set)(options&);
};

void choose_extensions(options& o, char const* value) {
    if (str(value) == "help")
        o.outcome = options::verdict::print_extensions;
    else if (!extensions.add(value))
        o.outcome = options::verdict::bad;
}

constexpr option table[] = {
    {"--log", [](options& o, char const* value) { o.log = str(value).value(); }, nullptr},
    {"--port", [](options& o, char const* value) { o.local_port = str(value).value(); }, nullptr},
    {"--tunnel", [](options&, char const* value) { tunnel_device = str(value); }, nullptr},
    {"--pipe", [](options& o, char const* value) { o.pipe = str(value); }, nullptr},
    {"--tdm", [](options&, char const* value) { tdm_device = str(value); }, nullptr},
    {"--dest-ip", [](options&, char const* value) { control_adr.address = utils::compact_ip(str(value)); }, nullptr},
    {"--dest-port", [](options&, char const* value) { control_adr.port = str(value).value(); }, nullptr},
    {"--extensions", choose_extensions, nullptr},
    {"--debug", nullptr, [](options& o) { o.debug = true; }},
    {"--ipv4", nullptr,
     [](options&) {
         ipv4 = true;
         ipv6 = false;
     }},
    {"--ipv6", nullptr,
     [](options&) {
         ipv4 = false;
         ipv6 = true;
     }},
};

option const* find(str const& name) {
    for (option const& candidate : table)
        if (name == candidate.name)
            return &candidate;
    return nullptr;
}

}  // namespace

options::verdict options::scan(int argc, char const* const* argv) {
    for (int i = 1; i < argc && outcome != verdict::print_extensions; i++) {
        str const argument(argv[i]);
        if (argument == "--version")
            return verdict::print_version;
        option const* const known = find(argument);
        if (known == nullptr)
            outcome = verdict::bad;
        else if (known->set != nullptr)
            known->set(*this);
        else if (i + 1 < argc)
            known->take_value(*this, argv[++i]);
        else
            outcome = verdict::bad;
    }
    return outcome;
}
