#include "control/options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/link.h"
#include "lib/log.h"
#include "tests/support/bytes.h"

namespace {

/// Everything that a command line can set, as text.
std::string scan(std::vector<char const*> arguments) {
    tunnel_device.clear();
    tdm_device = str("/dev/sdt");
    control_adr = ip_port(str(127, 0, 0, 1), 1299);
    ipv4 = ipv6 = true;
    arguments.insert(arguments.begin(), "fxsmedia");
    options chosen;
    options::verdict const verdict = chosen.scan(static_cast<int>(arguments.size()), arguments.data());
    std::string text = verdict == options::verdict::run   ? ""
                       : verdict == options::verdict::bad ? "bad "
                                                          : "version ";
    auto const add = [&](char const* name, std::string const& value, std::string const& normal) {
        if (value != normal)
            text += std::string(name) + "=" + value + " ";
    };
    add("log", std::to_string(chosen.log), "0");
    add("port", std::to_string(chosen.local_port), "0");
    add("tunnel", to_string(tunnel_device), "");
    add("pipe", to_string(chosen.pipe), "");
    add("tdm", to_string(tdm_device), "/dev/sdt");
    add("peer", to_string(utils::readable_ip(control_adr)), "127.0.0.1:1299");
    add("debug", std::to_string(chosen.debug), "0");
    add("families", std::string(ipv4 ? "4" : "") + (ipv6 ? "6" : ""), "46");
    EXPECT_EQ(log_level, -1) << "call control alone sets the threshold";
    return text;
}

TEST(options, table) {
    struct {
        std::vector<char const*> arguments;
        char const* result;
    } const table[] = {{{}, ""},
                       {{"--log", "3", "--port", "4000"}, "log=3 port=4000 "},
                       {{"--log", "0"}, ""},
                       {{"--log", "-2"}, "log=-2 "},
                       {{"--port", "12ab"}, "port=12 "},
                       {{"--tunnel", "/dev/ttyS1", "--pipe", "/tmp/p", "--tdm", "/tmp/sdt"},
                        "tunnel=/dev/ttyS1 pipe=/tmp/p tdm=/tmp/sdt "},
                       {{"--dest-ip", "10.0.0.9"}, "peer=10.0.0.9:1299 "},
                       {{"--dest-port", "77", "--dest-ip", "::1"}, "peer=[::1]:77 "},
                       {{"--debug"}, "debug=1 "},
                       {{"--ipv4"}, "families=4 "},
                       {{"--ipv6"}, "families=6 "},
                       {{"--ipv4", "--ipv6"}, "families=6 "},
                       {{"--ipv6", "--ipv4"}, "families=4 "},
                       {{"--port", "1", "--port", "2"}, "port=2 "},
                       {{"--port", "--debug"}, ""},
                       {{"--port"}, "bad "},
                       {{"--debug", "--dest-ip"}, "bad debug=1 "},
                       {{"--frobnicate", "--debug"}, "bad debug=1 "},
                       {{"stray"}, "bad "},
                       {{""}, "bad "},
                       {{"-version"}, "bad "},
                       {{"--PORT", "1"}, "bad "},
                       {{"--version"}, "version "},
                       {{"--frobnicate", "--version"}, "version "},
                       {{"--version", "--debug"}, "version "},
                       {{"--port", "--version"}, ""}};
    for (auto const& [arguments, result] : table) {
        std::string line;
        for (char const* argument : arguments)
            line += std::string(argument) + " ";
        EXPECT_EQ(scan(arguments), result) << line;
    }
}

}  // namespace
