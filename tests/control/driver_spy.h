#pragma once

#include <string>
#include <vector>

/// Sees every request to the telephone-line driver in this test program, and answers in its place. All other ioctl
/// calls go to the system.
struct driver_spy {
    struct request {
        unsigned long number;
        unsigned long argument;
        int fd;
        int access_mode;   ///< O_RDWR ...
        std::string file;  ///< that the descriptor stands for

        bool operator==(request const&) const = default;
    };
    static std::vector<request> seen;
    static int answer;

    /// What was seen since the last call.
    static std::vector<request> take();
};
