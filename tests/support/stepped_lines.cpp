#include "tests/support/stepped_lines.h"

#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"

namespace {

constexpr std::string_view written_mark = "--end of what was written before--";
constexpr int device_patience_ms = 10000;

}  // namespace

std::filesystem::path make_temporary_directory() {
    std::string name = (std::filesystem::temp_directory_path() / "fxsmedia_XXXXXX").string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    return name;
}

stepped_lines::stepped_lines() : directory(make_temporary_directory()), base((directory / "sdt").string()) {
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

stepped_lines::~stepped_lines() {
    for (int i = 0; i < devmgr_count; i++) {
        devmgrs[i].close();
        close(device[i]);
        close(telephone[i]);
    }
    devmgrs.clear();
    tdm_device = str("/dev/sdt");
    std::filesystem::remove_all(directory);
}

void stepped_lines::say(int line, std::string_view pcm) {
    int before = 0, now = 0;
    ioctl(device[line], FIONREAD, &before);
    ASSERT_EQ(write(telephone[line], pcm.data(), pcm.size()), static_cast<ssize_t>(pcm.size()));
    for (int ms = 0; now < before + static_cast<int>(pcm.size()); ms++) {
        ASSERT_LT(ms, device_patience_ms) << "the line device did not get what was said";
        poll(nullptr, 0, ms > 0);
        ioctl(device[line], FIONREAD, &now);
    }
}

std::string stepped_lines::heard(int line) {
    EXPECT_EQ(write(device[line], written_mark.data(), written_mark.size()),
              static_cast<ssize_t>(written_mark.size()));
    std::string all;
    while (!all.ends_with(written_mark)) {
        char buffer[4096];
        pollfd readable{telephone[line], POLLIN, 0};
        ssize_t const n =
            poll(&readable, 1, device_patience_ms) == 1 ? read(telephone[line], buffer, sizeof buffer) : -1;
        if (n <= 0) {
            ADD_FAILURE() << "the mark got lost";
            return all;
        }
        all.append(buffer, static_cast<std::size_t>(n));
    }
    return all.substr(0, all.size() - written_mark.size());
}
