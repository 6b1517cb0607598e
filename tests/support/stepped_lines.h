#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "dsp/devmgr.h"

/// Four line devices that the device managers can open by path; the test is the telephone on each of them and
/// nothing happens but what it does. While it lives, tdm_device names them and `devmgrs` is set up afresh.
///
/// A device is the slave side of a pseudo-terminal in raw mode: bytes pass as they are, in order, and nothing is
/// paced. It does not know the driver's ioctl requests (they fail, as on any other device).
class stepped_lines {
public:
    stepped_lines();
    ~stepped_lines();
    stepped_lines(stepped_lines const&) = delete;
    stepped_lines& operator=(stepped_lines const&) = delete;

    /// The telephone says something; returns when the device (opened by its manager) has all of it to read.
    void say(int line, std::string_view pcm);
    /// All that was written to the device since the last call.
    std::string heard(int line);
    std::string path(int line) const { return base + std::to_string(line); }

private:
    std::filesystem::path directory;
    std::string base;
    int telephone[devmgr_count];  ///< master sides
    int device[devmgr_count];     ///< keeps the slave side alive and raw while its manager has it closed
};

/// A new, empty directory of this test process.
std::filesystem::path make_temporary_directory();
