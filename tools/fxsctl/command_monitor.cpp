#include <cerrno>
#include <cstring>
#include <iostream>

#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/hub.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::chrono::seconds silence_limit{3};        // three heartbeats missed
constexpr std::chrono::milliseconds longest_wait{250};  // how late the end of a duration is noticed at most
constexpr std::uint16_t usual_call_control_port =
    1299;  // where the process reports when nothing else is said

struct monitor_options {
    double duration_s = 0;    // 0: no limit
    std::uint64_t count = 0;  // 0: no limit
    std::vector<std::string> filter;
    std::optional<std::uint16_t> log_level;
    std::uint16_t relay_port = 0;
    std::uint16_t relay_peer_port = usual_call_control_port;
};

class monitor {
public:
    monitor(const settings& global, const monitor_options& options) : global_(global), options_(options) {}

    void run() {
        connection link(global_);
        hub middle(link.client());
        open_hub(link, middle);
        set_log_level(link.client());
        const clock::time_point start = clock::now();
        const std::chrono::duration<double> limit(options_.duration_s);
        while (!counted_out() && (options_.duration_s == 0 || clock::now() - start < limit)) {
            show_kept(link.client());
            for (const hub::datagram& one : middle.pass_on(longest_wait)) {
                show(one);
            }
            if (link.client().closed()) {
                throw failure(exit_code::no_answer, "the monitor that this one went through has ended");
            }
            watch(link);
        }
    }

private:
    // A monitor that goes through another one is an observer only; the first one is the middle for everybody.
    void open_hub(const connection& link, hub& middle) {
        if (options_.relay_port != 0 &&
            (link.through_monitor() || !middle.relay(options_.relay_port, options_.relay_peer_port))) {
            throw failure(exit_code::local, link.through_monitor()
                                                ? "--relay: another monitor already holds the session"
                                                : std::string("--relay: ") + std::strerror(errno));
        }
        const bool is_hub = !link.through_monitor() && middle.listen(global_);
        std::cerr << "fxsctl: watching " << global_.host << ":" << global_.port
                  << (link.through_monitor() ? " through another monitor"
                      : is_hub               ? "; other runs of fxsctl go through this one"
                                             : "; other runs of fxsctl take the session away")
                  << std::endl;
    }

    void set_log_level(protocol::control_client& client) const {
        if (options_.log_level) {
            client.send(protocol::encode(protocol::log_level_command{*options_.log_level}));
        }
    }

    void show_kept(protocol::control_client& client) {
        for (const protocol::report& message : client.kept()) {
            show(origin::report, protocol::describe(message));
        }
        client.kept().clear();
    }

    void show(const hub::datagram& one) {
        if (one.command) {
            for (const protocol::description& message : protocol::describe_commands(one.data)) {
                show(origin::command, message);
            }
            return;
        }
        last_sign_of_life_ = clock::now();
        for (const protocol::report& message : protocol::parse_reports(one.data)) {
            show(origin::report, protocol::describe(message));
        }
    }

    void show(origin from, const protocol::description& message) {
        const bool is_command = from == origin::command && !is_small_talk(message.name);
        const std::string name = is_command ? "command" : message.name;
        const bool asked_for = options_.filter.empty() ? !is_small_talk(message.name)
                                                       : std::ranges::count(options_.filter, name) != 0;
        if (asked_for && !counted_out()) {
            print(global_, from, message, true);
            ++shown_;
        }
    }

    // Heartbeats and the session commands that confirm other commands; --filter shows them.
    static bool is_small_talk(const std::string& name) { return name == "heartbeat" || name == "session"; }

    bool counted_out() const { return options_.count != 0 && shown_ >= options_.count; }

    // The process has no memory: after a restart it reports to its default peer until somebody takes the session.
    void watch(connection& link) {
        const clock::time_point now = clock::now();
        const bool silent = now - last_sign_of_life_ > silence_limit;
        if (silent && !was_silent_) {
            std::cerr << "fxsctl: no heartbeat for " << silence_limit.count() << " s" << std::endl;
        } else if (!silent && was_silent_) {
            std::cerr << "fxsctl: the process is back" << std::endl;
            set_log_level(link.client());
        }
        if (silent && !link.through_monitor() && now - last_retry_ > std::chrono::seconds(1)) {
            link.client().send(protocol::encode(protocol::session_command{}));
            last_retry_ = now;
        }
        was_silent_ = silent;
    }

    const settings& global_;
    const monitor_options& options_;
    std::uint64_t shown_ = 0;
    bool was_silent_ = false;
    clock::time_point last_sign_of_life_ = clock::now();
    clock::time_point last_retry_ = clock::now();
};

}  // namespace

void add_monitor(CLI::App& app, program& p) {
    auto options = std::make_shared<monitor_options>();
    CLI::App* sub =
        add_command(app, p, "monitor",
                    "Print everything the process sends; other runs of fxsctl then go through this one",
                    [options](const settings& global) { monitor(global, *options).run(); });
    std::vector<std::string> names = protocol::report_names();
    names.insert(names.end(), {"command", "session"});
    sub->add_option("--duration,-t", options->duration_s, "End after this many seconds")
        ->check(CLI::PositiveNumber);
    sub->add_option("--count,-n", options->count, "End after this many lines");
    sub->add_option("--filter,-f", options->filter,
                    "Only these, separated by commas (default: all but heartbeat and session)")
        ->delimiter(',')
        ->check(CLI::IsMember(names));
    sub->add_option("--log-level,-L", options->log_level, "Set the log level first")->check(CLI::Range(0, 9));
    sub->add_option(
           "--relay", options->relay_port,
           "Stand in for the process on this UDP port: call control that is pointed here works as before, "
           "and is observed")
        ->check(CLI::Range(1, 65535));
    sub->add_option("--relay-peer", options->relay_peer_port,
                    "Port of call control until it sends something (default 1299)")
        ->check(CLI::Range(1, 65535))
        ->needs("--relay");
}

}  // namespace fxsctl
