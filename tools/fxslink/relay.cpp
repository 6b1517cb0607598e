#include "tools/fxslink/relay.h"

#include <poll.h>

#include <algorithm>
#include <functional>

namespace {

using clock_type = udp_link::clock;

/// Descriptors to wait for, each with what is done when it is readable.
struct watch_list {
    std::vector<pollfd> fds;
    std::vector<std::function<void()>> actions;

    void add(int fd, std::function<void()> action) {
        if (fd < 0)
            return;
        fds.push_back({fd, POLLIN, 0});
        actions.push_back(std::move(action));
    }
};

int milliseconds_until(std::optional<clock_type::time_point> due) {
    if (!due)
        return -1;
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(*due - clock_type::now()).count();
    return static_cast<int>(std::max<long long>(left, 0));
}

}  // namespace

void relay::run(int signal_fd) {
    for (bool stop = false; !stop;) {
        watch_list watched;
        watched.add(signal_fd, [&] { stop = true; });
        for (udp_link& link : udp)
            for (int const side : {0, 1})
                watched.add(link.fd(side), [&link, side] { link.receive(side, clock_type::now()); });
        for (tcp_link& link : tcp) {
            for (int const side : {0, 1}) {
                watched.add(link.client_fd(side), [&link, side] { link.receive(side); });
                watched.add(link.listening_fd(side), [&link, side] { link.accept_client(side); });
            }
        }
        std::optional<clock_type::time_point> next;
        for (udp_link& link : udp) {
            auto const due = link.send_due(clock_type::now());
            if (due && (!next || *due < *next))
                next = due;
        }
        if (poll(watched.fds.data(), watched.fds.size(), milliseconds_until(next)) <= 0)
            continue;
        for (std::size_t i = 0; i < watched.fds.size(); i++)
            if (watched.fds[i].revents != 0)
                watched.actions[i]();
    }
}
