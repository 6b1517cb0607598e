// What calls cost the media process on this machine: CPU time of the whole process over simulated lines in real time,
// next to a floor, a process that makes the system calls of the audio and nothing else (call_floor.cpp), and to
// osmo-mgw, which forwards as many packets and decodes nothing (forwarder.h), measured in turn with it in the same run.
// Memory and size at the end. Markdown tables on standard output.
//
//     calls [--seconds N] [--rounds N] [--calls N] [--awake yes] [--process PATH] [--floor PATH] [--forwarder PATH]
//           [--under COMMAND --counts FILE]
//
// A step takes N seconds (5) in each round (3); the least of the rounds counts. --calls: only so many. --awake: a
// thread of idle priority spins on each core, so that none has to wake up for the work. --forwarder: "none" leaves it
// out, as is done where it is not installed. Ends with status 1 when a process did not carry the audio. With --under
// they run under that command, an emulator with the plugin bench/instructions.c, which keeps its counts in FILE; the
// table is then of instructions and system calls.
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <sstream>
#include <thread>

#include "bench/call_setup.h"
#include "bench/forwarder.h"
#include "bench/process_usage.h"

namespace {

using namespace std::chrono;

struct options {
    int seconds = 5;
    int rounds = 3;
    std::string process = FXSMEDIA_BINARY;
    std::string floor = CALL_FLOOR_BINARY;
    std::string forwarder = "/usr/bin/osmo-mgw";
    int calls = 0;  ///< 0: all numbers
    bool awake = false;
    std::string under;
    std::string counts;
};

struct memory {
    long resident_kb = 0;
    long anonymous_kb = 0;

    static memory of(child_process const& process) {
        return {process.status_kb("VmRSS"), process.status_kb("RssAnon")};
    }
};

constexpr int line_count = 4;
constexpr char const* no_forwarder = "none";
constexpr int blocks_per_second = 100;
constexpr double enough = 0.95;  // of the audio must have passed; the rest is the load of the machine
constexpr double enough_to_count = 0.5;
bool carried = true;

/// Thrown by wait(): the program shall end, and what it has mounted and started with it.
struct interrupted {};

sigset_t end_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

void wait(int seconds_to_wait) {
    sigset_t const set = end_signals();
    timespec const time{seconds_to_wait, 0};
    if (sigtimedwait(&set, nullptr, &time) > 0)
        throw interrupted();
}

/// What carrying calls takes.
struct cost {
    double cpu_ms = std::numeric_limits<double>::infinity();
    double instructions = cpu_ms;
    double system_calls = cpu_ms;

    static cost of(child_process const& process, options const& chosen) {
        std::uint64_t counted[2] = {};
        std::ifstream(chosen.counts, std::ios::binary).read(reinterpret_cast<char*>(counted), sizeof counted);
        return {process.cpu_ms(), static_cast<double>(counted[0]), static_cast<double>(counted[1])};
    }
    cost since(cost const& before, double call_seconds) const {
        return {(cpu_ms - before.cpu_ms) / call_seconds, (instructions - before.instructions) / call_seconds,
                (system_calls - before.system_calls) / call_seconds};
    }
    void keep_least(cost const& other) {
        cpu_ms = std::min(cpu_ms, other.cpu_ms);
        instructions = std::min(instructions, other.instructions);
        system_calls = std::min(system_calls, other.system_calls);
    }
};

/// Where the audio comes from and goes to.
struct audio {
    std::function<telephones::traffic()> blocks;
    int streams;

    static audio of(telephones& lines, int calls) {
        return {[&lines] { return lines.blocks(); }, std::min(calls, line_count)};
    }
};

/// What `process` takes per second of a call, after a second in which it gets going. Without a call: per second.
cost per_call_second(child_process const& process, audio const& passed, int calls, options const& chosen) {
    wait(1);
    auto const before = passed.blocks();
    cost const cost_before = cost::of(process, chosen);
    auto const start = steady_clock::now();
    wait(chosen.seconds);
    cost const all = cost::of(process, chosen);
    double const took = duration<double>(steady_clock::now() - start).count();
    auto const after = passed.blocks();
    double const least = chosen.counts.empty() ? enough : enough_to_count;
    double const wanted = least * took * blocks_per_second * passed.streams;
    if (!process.alive() || static_cast<double>(after.read - before.read) < wanted ||
        static_cast<double>(after.written - before.written) < wanted) {
        std::fprintf(stderr, "%d calls: %lu blocks read and %lu written in %.1f s, at least %.0f expected\n", calls,
                     after.read - before.read, after.written - before.written, took, wanted);
        carried = false;
    }
    // Counts are those of the audio that passed, however busy the machine is.
    double const seconds = static_cast<double>(after.read - before.read) / (blocks_per_second * passed.streams);
    return all.since(cost_before, calls == 0 ? took : calls * (chosen.counts.empty() ? took : seconds));
}

/// The command's words, the program behind them.
std::vector<std::string> command(std::string const& program, options const& chosen) {
    std::istringstream words(chosen.under + " " + program);
    return {std::istream_iterator<std::string>(words), {}};
}

cost measure_floor(int calls, options const& chosen) {
    telephones lines;
    std::vector<std::string> started = command(chosen.floor, chosen);
    started.insert(started.end(), {lines.device_base(), std::to_string(calls)});
    child_process const floor(started);
    return per_call_second(floor, audio::of(lines, calls), calls, chosen);
}

cost measure_forwarder(int calls, options const& chosen) {
    forwarder const peer(command(chosen.forwarder, chosen), calls);
    return per_call_second(peer.usage(), {[&peer] { return peer.blocks(); }, calls}, calls, chosen);
}

struct process_figures {
    cost least;  ///< per call-second
    memory idle;
    memory busy;
};

void measure_process(int calls, bool secure, options const& chosen, process_figures& best) {
    telephones lines;
    media_process process(command(chosen.process, chosen), lines.device_base());
    best.idle = memory::of(process.usage());
    for (int i = 0; i < calls; i++)
        process.set_up_call(static_cast<std::uint16_t>(i), secure);
    best.least.keep_least(per_call_second(process.usage(), audio::of(lines, calls), calls, chosen));
    best.busy = memory::of(process.usage());
}

/// What stands in the forwarder's columns: no column without one, an empty cell where it has no figure.
std::string column(options const& chosen, std::string const& cell) {
    return chosen.forwarder == no_forwarder ? "" : cell + " |";
}
std::string column(options const& chosen, double value, int digits) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return column(chosen, value < std::numeric_limits<double>::infinity() ? std::string(" ") + text : "");
}

/// The numbers of calls of a table.
std::vector<int> steps(std::vector<int> const& all, options const& chosen) {
    return chosen.calls > 0 ? std::vector<int>{chosen.calls} : all;
}

/// Instructions and system calls, idle, plain and with SRTP, in one table.
void print_counts(options const& chosen) {
    std::string const peer_name = column(chosen, " osmo-mgw"), rule = column(chosen, "--:"), none = column(chosen, "");
    std::printf("| calls | | process, instructions | floor |%s process, system calls | floor |%s\n", peer_name.c_str(),
                peer_name.c_str());
    std::printf("|--:|---|--:|--:|%s--:|--:|%s\n", rule.c_str(), rule.c_str());
    process_figures idle;
    measure_process(0, false, chosen, idle);
    std::printf("| 0 | idle | %.0f | |%s %.0f | |%s\n", idle.least.instructions, none.c_str(), idle.least.system_calls,
                none.c_str());
    for (int const calls : steps({1, 4, 8}, chosen))
        for (bool const secure : {false, true}) {
            process_figures own;
            cost floor, peer;
            for (int round = 0; round < chosen.rounds; round++) {
                measure_process(calls, secure, chosen, own);
                floor.keep_least(measure_floor(calls, chosen));
                if (!secure && chosen.forwarder != no_forwarder)
                    peer.keep_least(measure_forwarder(calls, chosen));
            }
            std::printf("| %d | %s | %.0f | %.0f |%s %.0f | %.0f |%s\n", calls, secure ? "SRTP" : "plain",
                        own.least.instructions, floor.instructions, column(chosen, peer.instructions, 0).c_str(),
                        own.least.system_calls, floor.system_calls, column(chosen, peer.system_calls, 0).c_str());
            std::fflush(stdout);
        }
}

void print_table(options const& chosen) {
    std::printf("| calls | process, CPU ms per call-second | floor | process / floor |%s\n|--:|--:|--:|--:|%s\n",
                column(chosen, " osmo-mgw").c_str(), column(chosen, "--:").c_str());
    process_figures plain;
    process_figures secure;
    for (int const calls : steps({1, 2, 4, 8}, chosen)) {
        plain.least = cost();
        cost floor, peer;
        for (int round = 0; round < chosen.rounds; round++) {
            measure_process(calls, false, chosen, plain);
            floor.keep_least(measure_floor(calls, chosen));
            if (chosen.forwarder != no_forwarder)
                peer.keep_least(measure_forwarder(calls, chosen));
            if (calls == 8)
                measure_process(calls, true, chosen, secure);
        }
        std::printf("| %d | %.3f | %.3f | %.2f |%s\n", calls, plain.least.cpu_ms, floor.cpu_ms,
                    plain.least.cpu_ms / floor.cpu_ms, column(chosen, peer.cpu_ms, 3).c_str());
        std::fflush(stdout);
    }
    if (chosen.calls > 0)
        return;
    std::printf("\n8 calls with SRTP: %.3f CPU ms per call-second, %.2f times the plain ones.\n\n", secure.least.cpu_ms,
                secure.least.cpu_ms / plain.least.cpu_ms);
    std::printf("| memory, kB | resident | of it anonymous |\n|---|--:|--:|\n");
    std::printf("| idle | %ld | %ld |\n| 8 calls | %ld | %ld |\n| 8 calls with SRTP | %ld | %ld |\n\n",
                plain.idle.resident_kb, plain.idle.anonymous_kb, plain.busy.resident_kb, plain.busy.anonymous_kb,
                secure.busy.resident_kb, secure.busy.anonymous_kb);
    std::printf("Program, stripped: %ld bytes.\n", stripped_bytes(chosen.process));
}

/// Keeps a core from sleeping and takes nothing that anybody else wants.
void spin(std::stop_token const& ended) {
    sched_param const none{};
    sched_setscheduler(0, SCHED_IDLE, &none);
    while (!ended.stop_requested()) {
    }
}

bool scan(int argc, char** argv, options& chosen) {
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seconds") == 0)
            chosen.seconds = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--rounds") == 0)
            chosen.rounds = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--process") == 0)
            chosen.process = argv[i + 1];
        else if (std::strcmp(argv[i], "--floor") == 0)
            chosen.floor = argv[i + 1];
        else if (std::strcmp(argv[i], "--forwarder") == 0)
            chosen.forwarder = argv[i + 1];
        else if (std::strcmp(argv[i], "--calls") == 0)
            chosen.calls = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--awake") == 0)
            chosen.awake = std::strcmp(argv[i + 1], "yes") == 0;
        else if (std::strcmp(argv[i], "--under") == 0)
            chosen.under = argv[i + 1];
        else if (std::strcmp(argv[i], "--counts") == 0)
            chosen.counts = argv[i + 1];
        else
            return false;
    }
    return argc % 2 == 1 && chosen.seconds > 0 && chosen.rounds > 0 && chosen.under.empty() == chosen.counts.empty();
}

}  // namespace

int main(int argc, char** argv) {
    options chosen;
    if (!scan(argc, argv, chosen)) {
        std::fprintf(
            stderr,
            "usage: calls [--seconds N] [--rounds N] [--calls N] [--awake yes] [--process PATH] [--floor PATH]\n"
            "             [--forwarder PATH] [--under COMMAND --counts FILE]\n");
        return EXIT_FAILURE;
    }
    sigset_t const set = end_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    if (access(chosen.forwarder.c_str(), X_OK) != 0)
        chosen.forwarder = no_forwarder;
    std::vector<std::jthread> spinners;
    for (unsigned i = 0; chosen.awake && i < std::thread::hardware_concurrency(); i++)
        spinners.emplace_back(spin);
    try {
        chosen.counts.empty() ? print_table(chosen) : print_counts(chosen);
    } catch (interrupted const&) {
        return EXIT_FAILURE;
    }
    return carried ? EXIT_SUCCESS : EXIT_FAILURE;
}
