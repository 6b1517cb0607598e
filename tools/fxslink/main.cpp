#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <random>

#include "tools/fxslink/relay.h"

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
    app.add_option("--loss", wanted.network.loss_percent, "Packets lost, in %")
        ->check(percent)
        ->excludes(tcp);
    app.add_option("--duplicate", wanted.network.duplicate_percent, "Packets doubled, in %")
        ->check(percent)
        ->excludes(tcp);
    app.add_option("--delay", wanted.network.delay_ms, "Delay in ms")->check(milliseconds)->excludes(tcp);
    app.add_option("--jitter", wanted.network.jitter_ms,
                   "Largest additional delay in ms; packets overtake each other")
        ->check(milliseconds)
        ->excludes(tcp);
    app.add_option("--seed", wanted.seed, "Repeats the decisions of an earlier run")->excludes(tcp);
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
            std::printf("from port %d: %lu bytes\n",
                        (side == 0 ? wanted.port_a : wanted.port_b) + static_cast<int>(i),
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
