#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/process_usage.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/line_mount.h"
#include "tools/protocol/control_client.h"

/// Four telephones on lines that this program serves in real time: each says a tone, each hears what is written.
class telephones {
public:
    /// Ends the program when the lines can't be mounted.
    telephones();
    ~telephones();

    /// Base path of the devices.
    std::string device_base() const { return directory + "/sdt"; }
    /// Blocks of 10 ms that the lines' user has read and written since the start, all lines together.
    struct traffic {
        unsigned long read;
        unsigned long written;
    };
    traffic blocks();

private:
    std::string directory;
    fxsline::line_bank bank;
    fxsline::tick_clock clock;
    fxsline::line_mount mount{bank};
};

/// The media process with its control link. Call i is on line i % 4 and sends to its own RTP and RTCP ports, so that
/// each call receives what it sends: G.711 mu-law, 20 ms a packet.
class media_process {
public:
    /// Starts the command, the program last. Ends this program when the process does not answer.
    media_process(std::vector<std::string> command, std::string const& device_base);

    /// With `secure` the calls use SRTP with a tag of 10 bytes.
    void set_up_call(std::uint16_t call, bool secure);

    child_process const& usage() const { return *process; }

private:
    std::unique_ptr<child_process> process;
    protocol::control_client client;
};
