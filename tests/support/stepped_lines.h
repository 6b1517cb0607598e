#pragma once

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

#include "dsp/devmgr.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/udp_peer.h"

/// Four line devices that the device managers can open by path; the test is the telephone on each of them and
/// nothing happens but what it does. While it lives, tdm_device names them and `devmgrs` is set up afresh.
///
/// A device is the slave side of a pseudo-terminal in raw mode: bytes pass as they are, in order, and nothing is
/// paced. It does not know the driver's ioctl requests (they fail, as on any other device).
class stepped_lines {
public:
    stepped_lines() {
        for (int i = 0; i < devmgr_count; i++) {
            telephone[i] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            EXPECT_EQ(grantpt(telephone[i]), 0);
            EXPECT_EQ(unlockpt(telephone[i]), 0);
            std::string const slave = ptsname(telephone[i]);
            device[i] = open(slave.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
            termios settings{};
            EXPECT_EQ(tcgetattr(device[i], &settings), 0);
            cfmakeraw(&settings);
            EXPECT_EQ(tcsetattr(device[i], TCSANOW, &settings), 0);
            std::filesystem::create_symlink(slave, path(i));
        }
        tdm_device = to_str(base);
        devmgrs.resize(devmgr_count);
        for (int i = 0; i < devmgr_count; i++)
            devmgrs[i].init(i);
    }
    ~stepped_lines() {
        for (int i = 0; i < devmgr_count; i++) {
            devmgrs[i].close();
            close(device[i]);
            close(telephone[i]);
        }
        devmgrs.clear();
        tdm_device = str("/dev/sdt");
    }
    stepped_lines(stepped_lines const&) = delete;
    stepped_lines& operator=(stepped_lines const&) = delete;

    /// The telephone says something; returns when the device (opened by its manager) has all of it to read.
    void say(int line, std::string_view pcm) {
        int before = 0, now = 0;
        ioctl(device[line], FIONREAD, &before);
        ASSERT_EQ(write(telephone[line], pcm.data(), pcm.size()), static_cast<ssize_t>(pcm.size()));
        for (int ms = 0; now < before + static_cast<int>(pcm.size()); ms++) {
            ASSERT_LT(ms, 10000) << "the line device did not get what was said";
            poll(nullptr, 0, ms > 0);
            ioctl(device[line], FIONREAD, &now);
        }
    }
    /// All that was written to the device since the last call.
    std::string heard(int line) {
        constexpr std::string_view mark = "--end of what was written before--";
        EXPECT_EQ(write(device[line], mark.data(), mark.size()), static_cast<ssize_t>(mark.size()));
        std::string all;
        while (!all.ends_with(mark)) {
            char buffer[4096];
            ssize_t const n = shows(telephone[line], POLLIN) ? read(telephone[line], buffer, sizeof buffer) : -1;
            if (n <= 0) {
                ADD_FAILURE() << "the mark got lost";
                return all;
            }
            all.append(buffer, static_cast<std::size_t>(n));
        }
        return all.substr(0, all.size() - mark.size());
    }
    std::string path(int line) const { return base + std::to_string(line); }

private:
    temporary_directory directory;
    std::string base = directory.path("sdt");
    int telephone[devmgr_count];  ///< master sides
    int device[devmgr_count];     ///< keeps the slave side alive and raw while its manager has it closed
};
