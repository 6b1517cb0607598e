#include "tools/fxsline/driver_pipe.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace fxsline {

namespace {

bool is_pipe(std::string const& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

driver_pipe::~driver_pipe() {
    for (std::string const& path : paths)
        unlink(path.c_str());
    if (fd >= 0)
        close(fd);
}

std::string driver_pipe::create(std::string const& base) {
    for (char const* digit : {"0", "1"}) {
        std::string const path = base + digit;
        if (mkfifo(path.c_str(), 0666) != 0 && !is_pipe(path))
            return "can't create the pipe " + path + ": " + std::strerror(errno);
        paths.push_back(path);
    }
    // For reading, too: opening for writing alone fails while there is no reader, and the text would be lost with it.
    fd = open(paths.front().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    return fd >= 0 ? "" : "can't open the pipe " + paths.front() + ": " + std::strerror(errno);
}

int driver_pipe::send(std::string_view bytes) {
    if (bytes.size() > PIPE_BUF)
        return EMSGSIZE;
    return write(fd, bytes.data(), bytes.size()) < 0 ? errno : 0;
}

}  // namespace fxsline
