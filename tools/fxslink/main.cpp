#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <optional>
#include <random>

#include "tools/fxslink/links.h"

namespace {

constexpr int exit_ended = 0;
constexpr int exit_arguments = 2;
constexpr int exit_sockets = 5;

struct request {
    int port_a = 0;
    int port_b = 0;
    bool tcp = false;
    bool rtcp = false;
    impairment::settings network;
    std::uint32_t seed = std::random_device()();
};

void add_options(CLI::App& app, request& wanted) {
    CLI::Range const port(1, 65534);
    CLI::Range const percent(0.0, 100.0);
    CLI::Range const milliseconds(0, 10000);
    app.add_option("PORT_A", wanted.port_a, "Local port of one side")->required()->check(port);
    app.add_option("PORT_B", wanted.port_b, "Local port of the other side")->required()->check(port);
    auto* const tcp = app.add_flag("--tcp", wanted.tcp, "Join TCP connections instead of relaying datagrams");
    app.add_flag("--rtcp", wanted.rtcp, "Link the ports above both as well");
    app.add_option("--loss", wanted.network.loss_percent, "Packets lost, in %")->check(percent)->excludes(tcp);
    app.add_option("--duplicate", wanted.network.duplicate_percent, "Packets doubled, in %")
        ->check(percent)
        ->excludes(tcp);
    app.add_option("--delay", wanted.network.delay_ms, "Delay in ms")->check(milliseconds)->excludes(tcp);
    app.add_option("--jitter", wanted.network.jitter_ms, "Largest additional delay in ms; packets overtake each other")
        ->check(milliseconds)
        ->excludes(tcp);
    app.add_option("--seed", wanted.seed, "Repeats the decisions of an earlier run")->excludes(tcp);
}

/// All links of one run.
struct relay {
    std::vector<udp_link> udp;
    std::vector<tcp_link> tcp;

    /// Serves the links until signal_fd becomes readable.
    void run(int signal_fd);
};

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

relay build(request const& wanted) {
    relay made;
    for (int const above : {0, 1}) {
        if (above == 1 && !wanted.rtcp)
            break;
        if (wanted.tcp)
            made.tcp.emplace_back(wanted.port_a + above, wanted.port_b + above);
        else
            made.udp.emplace_back(wanted.port_a + above, wanted.port_b + above, wanted.network,
                                  wanted.seed + 2u * static_cast<unsigned>(above));
    }
    return made;
}

void report(relay const& ended, request const& wanted) {
    for (std::size_t i = 0; i < ended.udp.size(); i++) {
        for (int const side : {0, 1}) {
            auto const& count = ended.udp[i].count(side);
            int const port = (side == 0 ? wanted.port_a : wanted.port_b) + static_cast<int>(i);
            std::printf("from port %d: %lu packets, %lu lost, %lu doubled\n", port, count.packets, count.lost,
                        count.duplicated);
        }
    }
    for (std::size_t i = 0; i < ended.tcp.size(); i++)
        for (int const side : {0, 1})
            std::printf("from port %d: %lu bytes\n", (side == 0 ? wanted.port_a : wanted.port_b) + static_cast<int>(i),
                        ended.tcp[i].count(side));
}

/// A descriptor that becomes readable when the program is to end.
descriptor end_signals() {
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGINT);
    sigaddset(&wanted, SIGTERM);
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    return descriptor(signalfd(-1, &wanted, 0));
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "A network between two calls, on this machine: relays RTP, and loses, doubles and delays it on "
        "demand.");
    app.footer(
        "Each call sends to its own side's port; what it sends leaves at the other side, to whoever sent "
        "there last.\n"
        "With --tcp, calls connect to the ports and their streams are joined. Ends with Ctrl-C and prints "
        "what passed.\n"
        "Exit status: 0 ended by a signal, 2 wrong arguments, 5 a port can't be used.\n\n"
        "Example: fxslink 30000 30010 --rtcp --loss 5 --delay 40 --jitter 30\n");
    app.set_version_flag("--version", "fxslink " FXSMEDIA_VERSION);
    request wanted;
    add_options(app, wanted);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? exit_ended : exit_arguments;
    }
    try {
        descriptor const signals = end_signals();
        relay links = build(wanted);
        if (!wanted.tcp)
            std::printf("seed %u\n", wanted.seed);
        std::fflush(stdout);
        links.run(signals.get());
        report(links, wanted);
        return exit_ended;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "fxslink: %s\n", error.what());
        return exit_sockets;
    }
}
