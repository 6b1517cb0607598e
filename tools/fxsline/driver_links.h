// The driver's links to the process beside its device files: the message pipe and the signalling device, each there
// or not. Reports all that goes over them as events of the bank and says what a script tells at its time. Not
// locked: line_mount serialises.
#pragma once

#include <string>
#include <string_view>

#include "tools/fxsline/driver_pipe.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/pipe_script.h"
#include "tools/fxsline/signal_device.h"

namespace fxsline {

struct links_config {
    std::string pipe;    // base path of the two named pipes; empty: no message pipe
    pipe_script script;  // what is said on it, in any order
    std::string signal;  // path of the link to the signalling device; empty: no such device
};

class driver_links {
public:
    // The bank stays the caller's.
    explicit driver_links(line_bank& telephones) : bank(telephones) {}

    // Creates what is configured. An empty text, or what went wrong.
    std::string create(links_config config);

    bool has_pipe() const { return pipe.is_open(); }
    bool has_signal() const { return signalling.fd() >= 0; }

    // After the bank's tick: says what has become due.
    void tick();

    // Sends `bytes` over the message pipe, or hexadecimal text over the signalling device. 0, or an errno together
    // with an event that says why not.
    int say(std::string_view bytes);
    int signal(std::string_view hex);

    // Readable (for poll) when the process has written to the signalling device; -1 without one.
    int signal_fd() const { return signalling.fd(); }

    // Reports what the process has written there.
    void receive_signal();

private:
    line_bank& bank;
    driver_pipe pipe;
    signal_device signalling;
    pipe_script script;    // by time
    size_t next_text = 0;  // of the script
};

}  // namespace fxsline
