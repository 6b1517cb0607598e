#include "tools/fxsctl/hub_endpoint.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace fxsctl {
namespace {

constexpr int backlog = 8;

struct endpoint {
    sockaddr_un address{};
    socklen_t size = 0;
};

endpoint hub_name(settings const& global) {
    std::string const name = "fxsctl/" + global.process_address();
    endpoint result;
    result.address.sun_family = AF_UNIX;  // sun_path[0] stays 0: the abstract namespace, unix(7)
    std::size_t const length = std::min(name.size(), sizeof result.address.sun_path - 1);
    std::copy_n(name.begin(), length, result.address.sun_path + 1);
    result.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    return result;
}

/// Keeps errno over the close.
int give_up(int fd) {
    int const reason = errno;
    if (fd >= 0)
        close(fd);
    errno = reason;
    return -1;
}

}  // namespace

int connect_to_hub(settings const& global) {
    endpoint const name = hub_name(global);
    int const fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr const*>(&name.address), name.size) != 0)
        return give_up(fd);
    return fd;
}

int listen_as_hub(settings const& global) {
    endpoint const name = hub_name(global);
    int const fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr const*>(&name.address), name.size) != 0 ||
        listen(fd, backlog) != 0)
        return give_up(fd);
    return fd;
}

bool trusted_peer(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && (peer.uid == 0 || peer.uid == getuid());
}

}  // namespace fxsctl
