#pragma once

#include <string>
#include <vector>

#include "phone/line.h"

namespace fxsphone {

/// One telephone.
struct telephone_settings {
    int number = 0;            ///< of the line, 0 to 3
    std::string user;          ///< user part of its address
    std::string display_name;  ///< empty: none
    std::vector<std::string> codecs = {"pcma", "pcmu"};
    int ptime_ms = 20;
    bool keys_as_events = true;  ///< keys that the driver saw go to the far end; false: it hears them anyway
};

/// The whole configuration; the defaults are what fxsphone(1) says.
struct phone_settings {
    int process_port = 0;
    std::string sip_ip = "127.0.0.1";  ///< also where media is received
    int sip_port = 5060;
    std::string domain;       ///< of the telephones' own addresses; empty: sip_ip:sip_port
    std::string ring_device;  ///< the line's number is appended; empty: none
    int tone_set = 1;         ///< of the control protocol, 1 to 16
    line_settings times;
    std::vector<dial_rule> plan;
    std::vector<telephone_settings> telephones;

    /// Domain or, without one, the address that it listens on.
    std::string own_domain() const { return domain.empty() ? sip_ip + ":" + std::to_string(sip_port) : domain; }
};

}  // namespace fxsphone
