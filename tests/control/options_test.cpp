#include "control/options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "control/sigchan.h"
#include "dsp/devmgr.h"
#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/protocol.h"
#include "tests/support/bytes.h"

namespace {

/// Everything that a command line can set, as text.
std::string scan(std::vector<char const*> arguments) {
    tunnel_device.clear();
    tdm_device = str("/dev/sdt");
    control_adr = ip_port(str(127, 0, 0, 1), protocol::default_peer_port);
    ipv4 = ipv6 = true;
    arguments.insert(arguments.begin(), "fxsmedia");
    options chosen;
    options::verdict const verdict = chosen.scan(static_cast<int>(arguments.size()), arguments.data());
    EXPECT_EQ(log_level, -1) << "call control alone sets the threshold";
    char const* const ends[] = {" run", " version", " bad"};
    str const text = str::sprintf("%d %d %s %s %s ", arg_int(chosen.log), arg_int(chosen.local_port),
                                  arg_str(tunnel_device), arg_str(chosen.pipe), arg_str(tdm_device));
    return to_string(text + utils::readable_ip(control_adr)) + (chosen.debug ? " debug" : "") +
           (ipv4 ? " 4" : "") + (ipv6 ? " 6" : "") + ends[static_cast<int>(verdict)];
}

TEST(options, table) {
    std::string const normal = "0 0   /dev/sdt 127.0.0.1:1299";
    struct {
        std::vector<char const*> arguments;
        std::string result;
    } const table[] = {
        {{}, normal + " 4 6 run"},
        {{"--log", "-2", "--port", "12ab", "--tunnel", "/dev/x", "--pipe", "/p", "--tdm", "/t", "--dest-port",
          "77", "--dest-ip", "::1", "--debug", "--ipv6", "--ipv4"},
         "-2 12 /dev/x /p /t [::1]:77 debug 4 run"},
        {{"--dest-ip", "10.0.0.9", "--port", "1", "--port", "2"}, "0 2   /dev/sdt 10.0.0.9:1299 4 6 run"},
        {{"--ipv4", "--ipv6"}, normal + " 6 run"},
        {{"--port", "--debug"}, normal + " 4 6 run"},
        {{"--debug", "--dest-ip"}, normal + " debug 4 6 bad"},
        {{"--frobnicate", "--debug"}, normal + " debug 4 6 bad"},
        {{""}, normal + " 4 6 bad"},
        {{"-version"}, normal + " 4 6 bad"},
        {{"--PORT", "1"}, normal + " 4 6 bad"},
        {{"--version", "--debug"}, normal + " 4 6 version"},
        {{"--port", "--version"}, normal + " 4 6 run"}};
    for (auto const& [arguments, result] : table)
        EXPECT_EQ(scan(arguments), result);
}

}  // namespace
