// The process in real time under calls of every kind, for as long as wanted: does it lose a heartbeat, a descriptor, a
// block, memory, or say something that nothing explains? docs/soak.md says how to read what is printed.

#include <CLI/CLI.hpp>

#include "tests/soak/calls.h"
#include "tests/soak/gauges.h"

namespace {

constexpr int pauses = 6;                  // moments without calls, at which all must be as in the beginning
constexpr double judged_from_minutes = 5;  // a shorter run says nothing about memory and lateness
constexpr long most_growth_kb = 256;       // after the first pause: rare sizes still find their first block
constexpr long most_descriptors = protocol::call_count * 6 + protocol::slot_count;

struct options {
    double minutes = 1;
    unsigned seed = 1;
    bool real_time = false;
    steady::duration length() const { return std::chrono::duration_cast<steady::duration>(60s * minutes); }
};

class soak {
public:
    explicit soak(options const& chosen)
        : wanted(chosen),
          decide(chosen.seed),
          lines(speakers(chosen.seed)),
          port(free_port()),
          process(arguments()),
          client(protocol::control_client::connect_udp("127.0.0.1", port)),
          traffic(client, decide) {
        int const room = 8 << 20;
        setsockopt(client.fd(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
        for (unsigned line = 0; line < protocol::slot_count; line++)
            lines->mount().locked([&] { lines->bank().line(line).tap_heard({}); });
        if (!client.start_session(patience))
            throw std::runtime_error("the process does not answer: " + process.error_output());
        client.send(protocol::encode(protocol::log_level_command{.level = 9}));
    }

    /// Whether nothing was wrong.
    bool run() {
        settle();
        before = usage(process.pid());
        auto next_minute = started + 1min;
        long warm_kb = 0;
        for (int pause = 1; pause <= pauses; pause++) {
            while (steady::now() < started + wanted.length() * pause / pauses && process.alive()) {
                live_for(50ms);
                traffic.step();
                most = std::max(most, usage(process.pid()).descriptors);
                if (steady::now() >= next_minute)
                    print_state(), next_minute += 1min;
            }
            traffic.end_all();
            settle();
            usage const now(process.pid());
            leaked += now.descriptors - before.descriptors;
            warm_kb = pause == 1 ? now.resident_kb : warm_kb;
            grown_kb = now.resident_kb - warm_kb;
        }
        print_state();
        for (auto const& [pattern, count] : audit.counts)
            std::printf("%10u  %s\n", count, pattern.c_str());
        return judge();
    }

private:
    std::vector<std::string> arguments() const {
        std::vector<std::string> all{"--tdm", lines->tdm_path(), "--log", "1", "--port", std::to_string(port)};
        if (!wanted.real_time)
            all.push_back("--debug");
        return all;
    }
    void live_for(steady::duration span) {
        for (auto const until = steady::now() + span; steady::now() < until; traffic.serve())
            while (auto const report = client.receive(2ms)) {
                audit.take(*report);
                traffic.serve();
            }
    }
    /// Until all that was asked for has been done and has had its consequences.
    void settle() {
        traffic.ask_driver();
        for (auto const until = steady::now() + patience; audit.answers < traffic.questions && steady::now() < until;)
            live_for(10ms);
        live_for(200ms);
    }
    unsigned long total(std::uint64_t fxsline::line_counters::*counter) {
        return lines->mount().locked([&] {
            unsigned long sum = 0;
            for (unsigned i = 0; i < protocol::slot_count; i++)
                sum += lines->bank().line(i).counters().*counter;
            return sum;
        });
    }
    void print_state() {
        usage const now(process.pid());
        double const s = std::chrono::duration<double>(steady::now() - started).count();
        std::printf(
            "%.2f min: %u calls, %u changes, RSS %ld kB (peak %ld), descriptors %ld (most %ld), CPU %.2f %%, "
            "%u heartbeats (longest gap %.2f s), %u log lines (unexplained %u), overruns %lu, underruns %lu, "
            "far packets %u (gaps %u)\n  late ms: process %s\n           clock   %s\n           control %s\n",
            s / 60, traffic.begun, traffic.changes, now.resident_kb, now.peak_kb, now.descriptors, most,
            (now.cpu_ms - before.cpu_ms) / s / 10, audit.heartbeats, audit.longest_gap_s, audit.log_lines,
            audit.unexplained, total(&fxsline::line_counters::overruns), total(&fxsline::line_counters::underruns),
            traffic.far_packets, traffic.far_gaps, clock.process.text().c_str(), clock.clock.text().c_str(),
            clock.control.text().c_str());
        std::fflush(stdout);
    }
    bool judge() {
        bool const short_run = wanted.minutes < judged_from_minutes;
        unsigned const machine_late = clock.control.above_10_ms() + clock.clock.above_10_ms();
        int const machine_worst_ms = std::max<int>(clock.control.worst_ms, clock.clock.worst_ms);
        std::pair<bool, char const*> const rules[] = {
            {process.alive() && audit.answers == traffic.questions, "the process lives and answers"},
            {traffic.begun > 0 && traffic.failed == 0, "every call could be begun"},
            {audit.unexplained == 0, "every report and log line is explained"},
            {audit.longest_gap_s < 1.95 + machine_worst_ms / 1000.0, "no heartbeat was lost"},
            {leaked == 0 && most <= before.descriptors + most_descriptors, "descriptors come back"},
            {traffic.far_packets > 0 && traffic.far_gaps == 0, "far ends got every packet, in order"},
            {short_run || grown_kb <= most_growth_kb, "memory stays after the first pause"},
            {short_run || clock.process.above_10_ms() <= 2 * machine_late + 2, "late only when the machine is"},
            {short_run || total(&fxsline::line_counters::overruns) == 0 || machine_worst_ms > 40,
             "no block that a line said was lost"}};
        for (auto const& [holds, text] : rules)
            std::printf("%s%s\n", holds ? "ok      " : "FAILED  ", text);
        std::printf("memory grew by %ld kB after the first pause, descriptors leaked %ld; repeat with --seed %u\n",
                    grown_kb, leaked, wanted.seed);
        return std::ranges::all_of(rules, [](auto const& rule) { return rule.first; });
    }

    options wanted;
    dice decide;
    std::unique_ptr<telephones> lines;
    std::uint16_t port;
    media_process process;
    protocol::control_client client;
    calls traffic;
    report_audit audit;
    line_clock clock{*lines, wanted.real_time};
    usage before{process.pid()};
    steady::time_point started = steady::now();
    long leaked = 0, most = 0, grown_kb = 0;
};

}  // namespace

int main(int argc, char** argv) {
    options chosen;
    CLI::App app("Runs fxsmedia in real time under calls of every kind and watches it.");
    app.add_option("--minutes", chosen.minutes, "how long")->capture_default_str();
    app.add_option("--seed", chosen.seed, "of all decisions")->capture_default_str();
    app.add_flag("--real-time", chosen.real_time, "process and telephones with real-time priority");
    app.add_option_function<std::string>(
        "--process", [](std::string const& path) { setenv("FXSMEDIA_PROCESS", path.c_str(), 1); },
        "the process to be watched instead of that of this build");
    CLI11_PARSE(app, argc, argv);
    if (chosen.real_time && !take_priority(interrupt_priority))
        return std::cerr << "no right to real-time priority\n", 1;
    return soak(chosen).run() ? 0 : 1;
}
