#pragma once

#include <optional>

#include "tools/fxslink/tcp_link.h"
#include "tools/fxslink/udp_link.h"

/// All links of one run.
struct relay {
    std::vector<udp_link> udp;
    std::vector<tcp_link> tcp;

    /// Serves the links until signal_fd becomes readable.
    void run(int signal_fd);
};
