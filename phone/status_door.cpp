#include "phone/status_door.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "phone/libre.h"

namespace fxsphone {

namespace {

std::pair<sockaddr_un, bool> address_of(std::string const& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    bool const fits = path.size() < sizeof address.sun_path;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return {address, fits};
}

bool may_know(int connection) {
    ucred who = {};
    socklen_t size = sizeof who;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &who, &size) == 0 && (who.uid == geteuid() || who.uid == 0);
}

}  // namespace

status_door::~status_door() {
    close();
}

void status_door::close() {
    if (fd < 0)
        return;
    fd_close(fd);
    ::close(std::exchange(fd, -1));
    unlink(where.c_str());
}

std::string status_door::open(std::string const& path, std::function<std::string()> tell) {
    auto const [address, fits] = address_of(path);
    if (!fits)
        return path + ": too long for a socket";
    where = path;
    text = std::move(tell);
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    unlink(path.c_str());
    auto const* const bound = reinterpret_cast<sockaddr const*>(&address);
    if (fd < 0 || bind(fd, bound, sizeof address) != 0 || listen(fd, 4) != 0)
        return path + ": " + std::strerror(errno);
    int const failed = fd_listen(
        fd, FD_READ, [](int, void* arg) { static_cast<status_door*>(arg)->answer(); }, this);
    return failed == 0 ? "" : std::strerror(failed);
}

/// The text fits a socket's buffer; who does not read it at once gets the beginning.
void status_door::answer() {
    int const connection = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (connection < 0)
        return;
    if (may_know(connection)) {
        std::string const all = text() + "\n";
        send(connection, all.data(), all.size(), MSG_NOSIGNAL);
    }
    ::close(connection);
}

std::string ask_status(std::string const& path) {
    auto const [address, fits] = address_of(path);
    int const fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string all;
    char part[4096];
    if (fits && fd >= 0 && connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0)
        for (ssize_t n; (n = recv(fd, part, sizeof part, 0)) > 0;)
            all.append(part, static_cast<std::size_t>(n));
    int const problem = errno;
    if (fd >= 0)
        ::close(fd);
    errno = problem;
    return all;
}

}  // namespace fxsphone
