// What calls cost the media process on this machine: CPU time of the whole process over simulated lines in real time,
// next to a floor, a process that makes the system calls of the audio and nothing else (call_floor.cpp), measured in
// turn with it in the same run. Memory and size at the end. Markdown tables on standard output.
//
//     calls [--seconds N] [--rounds N] [--process PATH]
//
// A step takes N seconds (5) in each round (3); the least of the rounds counts. Ends with status 1 when a process did
// not carry the audio.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "bench/call_setup.h"
#include "bench/process_usage.h"

namespace {

using namespace std::chrono;

struct options {
    int seconds = 5;
    int rounds = 3;
    std::string process = FXSMEDIA_BINARY;
};

struct memory {
    long resident_kb = 0;
    long anonymous_kb = 0;

    static memory of(child_process const& process) {
        return {process.status_kb("VmRSS"), process.status_kb("RssAnon")};
    }
};

constexpr int line_count = 4;
constexpr int blocks_per_second = 100;
constexpr double enough = 0.95;  // of the audio must have passed; the rest is the load of the machine
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

/// CPU time of `process` per second of a call, ms, after a second in which it gets going.
double cpu_ms_per_call_second(child_process const& process, telephones& lines, int calls, int seconds_to_measure) {
    wait(1);
    auto const before = lines.blocks();
    double const cpu_before = process.cpu_ms();
    auto const start = steady_clock::now();
    wait(seconds_to_measure);
    double const cpu = process.cpu_ms() - cpu_before;
    double const took = duration<double>(steady_clock::now() - start).count();
    auto const after = lines.blocks();
    double const wanted = enough * took * blocks_per_second * std::min(calls, line_count);
    if (!process.alive() || static_cast<double>(after.read - before.read) < wanted ||
        static_cast<double>(after.written - before.written) < wanted) {
        std::fprintf(stderr, "%d calls: %lu blocks read and %lu written in %.1f s, at least %.0f expected\n", calls,
                     after.read - before.read, after.written - before.written, took, wanted);
        carried = false;
    }
    return cpu / (calls * took);
}

double measure_floor(int calls, options const& chosen) {
    telephones lines;
    child_process const floor({CALL_FLOOR_BINARY, lines.device_base(), std::to_string(calls)});
    return cpu_ms_per_call_second(floor, lines, calls, chosen.seconds);
}

struct process_figures {
    double cpu_ms = std::numeric_limits<double>::infinity();  ///< per call-second
    memory idle;
    memory busy;
};

void measure_process(int calls, bool secure, options const& chosen, process_figures& best) {
    telephones lines;
    media_process process(chosen.process, lines.device_base());
    best.idle = memory::of(process.usage());
    for (int i = 0; i < calls; i++)
        process.set_up_call(static_cast<std::uint16_t>(i), secure);
    best.cpu_ms = std::min(best.cpu_ms, cpu_ms_per_call_second(process.usage(), lines, calls, chosen.seconds));
    best.busy = memory::of(process.usage());
}

void print_table(options const& chosen) {
    std::printf("| calls | process, CPU ms per call-second | floor | process / floor |\n|--:|--:|--:|--:|\n");
    process_figures plain;
    process_figures secure;
    for (int const calls : {1, 2, 4, 8}) {
        plain.cpu_ms = std::numeric_limits<double>::infinity();
        double floor = std::numeric_limits<double>::infinity();
        for (int round = 0; round < chosen.rounds; round++) {
            measure_process(calls, false, chosen, plain);
            floor = std::min(floor, measure_floor(calls, chosen));
            if (calls == 8)
                measure_process(calls, true, chosen, secure);
        }
        std::printf("| %d | %.3f | %.3f | %.2f |\n", calls, plain.cpu_ms, floor, plain.cpu_ms / floor);
        std::fflush(stdout);
    }
    std::printf("\n8 calls with SRTP: %.3f CPU ms per call-second, %.2f times the plain ones.\n\n", secure.cpu_ms,
                secure.cpu_ms / plain.cpu_ms);
    std::printf("| memory, kB | resident | of it anonymous |\n|---|--:|--:|\n");
    std::printf("| idle | %ld | %ld |\n| 8 calls | %ld | %ld |\n| 8 calls with SRTP | %ld | %ld |\n\n",
                plain.idle.resident_kb, plain.idle.anonymous_kb, plain.busy.resident_kb, plain.busy.anonymous_kb,
                secure.busy.resident_kb, secure.busy.anonymous_kb);
    std::printf("Program, stripped: %ld bytes.\n", stripped_bytes(chosen.process));
}

bool scan(int argc, char** argv, options& chosen) {
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seconds") == 0)
            chosen.seconds = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--rounds") == 0)
            chosen.rounds = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--process") == 0)
            chosen.process = argv[i + 1];
        else
            return false;
    }
    return argc % 2 == 1 && chosen.seconds > 0 && chosen.rounds > 0;
}

}  // namespace

int main(int argc, char** argv) {
    options chosen;
    if (!scan(argc, argv, chosen)) {
        std::fprintf(stderr, "usage: calls [--seconds N] [--rounds N] [--process PATH]\n");
        return EXIT_FAILURE;
    }
    sigset_t const set = end_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    try {
        print_table(chosen);
    } catch (interrupted const&) {
        return EXIT_FAILURE;
    }
    return carried ? EXIT_SUCCESS : EXIT_FAILURE;
}
