#include <signal.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

#include "lib/protocol.h"
#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/hub.h"
#include "tools/fxsctl/media_options.h"
#include "tools/fxsctl/media_watch.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::chrono::seconds silence_limit{3};  ///< three heartbeats missed
constexpr char const* stopped_name = "media-stopped";
constexpr char const* resumed_name = "media-resumed";
constexpr std::chrono::milliseconds longest_wait{250};  ///< how late the end of a duration is noticed at most

struct monitor_options {
    double duration_s = 0;    ///< 0: no limit
    std::uint64_t count = 0;  ///< 0: no limit
    std::vector<std::string> filter;
    std::optional<std::uint16_t> log_level;
    std::uint16_t relay_port = 0;
    std::uint16_t relay_peer_port = protocol::default_peer_port;
    srtp_options srtp;
    bool show_keys = false;
    bool summary = false;
    bool quiet = false;
    bool brief = false;
};

std::int64_t milliseconds_since_1970() {
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

volatile std::sig_atomic_t end_asked_for = 0;

/// With a summary to print, the first Ctrl-C or SIGTERM only ends the watching; the second one ends the program.
void end_with_a_summary() {
    struct sigaction action {};
    action.sa_handler = [](int) { end_asked_for = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

class monitor {
public:
    monitor(settings const& global, monitor_options const& asked) : chosen(global), options(asked) {
        protocol::media_command keys;
        apply(asked.srtp, keys);
        reader.use(keys);
    }

    void run() {
        if (!options.summary) {
            watch_process();
            return;
        }
        end_with_a_summary();
        try {
            watch_process();
        } catch (failure const&) {
            print_quality(chosen, quality);
            throw;
        }
        print_quality(chosen, quality);
    }

private:
    void watch_process() {
        connection link(chosen);
        hub middle(link.client());
        open_hub(link, middle);
        set_log_level(link.client());
        clock::time_point const start = clock::now();
        std::chrono::duration<double> const limit(options.duration_s);
        while (end_asked_for == 0 && !counted_out() && (options.duration_s == 0 || clock::now() - start < limit)) {
            show_kept(link.client());
            pass_on(middle, longest_wait);
            if (link.client().closed())
                throw failure(exit_code::no_answer, "the monitor that this one went through has ended");
            watch(link);
        }
        pass_on(middle, std::chrono::milliseconds(0));  // what had arrived before the end
    }

    void pass_on(hub& middle, std::chrono::milliseconds longest) {
        for (hub::datagram const& one : middle.pass_on(longest))
            show(one);
    }

    /// A monitor that runs through another one only observes; the first one serves all other runs.
    void open_hub(connection const& link, hub& middle) {
        if (options.relay_port != 0 &&
            (link.through_monitor() || !middle.relay(options.relay_port, options.relay_peer_port))) {
            throw failure(exit_code::local, link.through_monitor()
                                                ? "--relay: another monitor already holds the session"
                                                : std::string("--relay: ") + std::strerror(errno));
        }
        bool const is_hub = !link.through_monitor() && middle.listen(chosen);
        std::cerr << "fxsctl: watching " << chosen.host << ":" << chosen.port
                  << (link.through_monitor() ? " through another monitor"
                      : is_hub               ? "; other runs of fxsctl go through this one"
                                             : "; other runs of fxsctl take the session away")
                  << std::endl;
    }

    void set_log_level(protocol::control_client& client) const {
        if (options.log_level)
            client.send(protocol::encode(protocol::log_level_command{*options.log_level}));
    }

    void show_kept(protocol::control_client& client) {
        for (protocol::report const& message : client.kept())
            show(message);
        client.kept().clear();
    }

    void show(hub::datagram const& one) {
        if (one.command) {
            reader.learn(one.data);
            ledger.add(true, one.data, 0);
            for (auto const& [call, known] : ledger.calls())
                if (known.send)
                    quality.codec_chosen(call, known.send->codec);
            for (protocol::description const& message : protocol::describe_commands(one.data, key_display()))
                if (!is_probe(message))
                    show(origin::command, message);
            return;
        }
        last_sign_of_life = clock::now();
        for (protocol::report const& message : protocol::parse_reports(one.data))
            show(message);
    }

    void show(protocol::report const& message) {
        if (auto const* opened = std::get_if<protocol::open_reply>(&message)) {
            quality.call_opened(opened->call);
            media.forget(opened->call);
        }
        auto const* copy = std::get_if<protocol::rtcp_copy>(&message);
        if (copy == nullptr) {
            show(origin::report, protocol::describe(message, key_display()));
            return;
        }
        rtcp_reading const reading = reader.read(*copy);
        quality.add(observation(*copy, reading, milliseconds_since_1970()));
        if (!options.brief && may_print(origin::report, "rtcp"))
            print_rtcp(chosen, *copy, reading, true);
        if (!copy->received)
            for (media_watch::change const& one : media.add(copy->call, reading.packets))
                show(origin::result, described(one));
    }

    static protocol::description described(media_watch::change const& one) {
        return {one.stopped ? stopped_name : resumed_name,
                {{"call", std::int64_t{one.call}},
                 {"direction", std::string(one.received ? "network->phone" : "phone->network")}}};
    }

    void show(origin from, protocol::description const& message) {
        if (may_print(from, message.name))
            print(chosen, from, message, true);
    }

    /// Whether to print a message of this name. One that is printed is counted.
    bool may_print(origin from, std::string const& message) {
        bool const is_command = from == origin::command && !is_small_talk(message);
        std::string const name = is_command ? "command" : message;
        bool const asked_for =
            options.filter.empty() ? !is_small_talk(message) : std::ranges::count(options.filter, name) != 0;
        bool const shows = asked_for && !options.quiet && !counted_out();
        shown += shows ? 1 : 0;
        return shows;
    }

    protocol::keys key_display() const { return options.show_keys ? protocol::keys::shown : protocol::keys::hidden; }

    /// Heartbeats, and the session commands that confirm other commands; shown only with --filter.
    static bool is_small_talk(std::string const& name) { return name == "heartbeat" || name == "session"; }

    bool counted_out() const { return options.count != 0 && shown >= options.count; }

    /// A restarted process reports to its default peer until call control takes the session again.
    void watch(connection& link) {
        clock::time_point const now = clock::now();
        bool const silent = now - last_sign_of_life > silence_limit;
        if (silent && !was_silent) {
            std::cerr << "fxsctl: no heartbeat for " << silence_limit.count() << " s" << std::endl;
        } else if (!silent && was_silent) {
            std::cerr << "fxsctl: the process is back" << std::endl;
            set_log_level(link.client());
        }
        if (silent && !link.through_monitor() && now - last_retry > std::chrono::seconds(1)) {
            link.client().send(protocol::encode(protocol::session_command{}));
            last_retry = now;
        }
        was_silent = silent;
    }

    settings const& chosen;
    monitor_options const& options;
    rtcp_reader reader;
    rtcp_view::quality_tracker quality;
    call_ledger ledger;
    media_watch media;
    std::uint64_t shown = 0;
    bool was_silent = false;
    clock::time_point last_sign_of_life = clock::now();
    clock::time_point last_retry = clock::now();
};

}  // namespace

void add_monitor(CLI::App& app, program& p) {
    auto options = std::make_shared<monitor_options>();
    CLI::App* sub = add_command(app, p, "monitor",
                                "Print everything the process sends; other runs of fxsctl then go through this one",
                                [options](settings const& global) { monitor(global, *options).run(); });
    std::vector<std::string> names = protocol::report_names();
    names.insert(names.end(), {"command", "session", stopped_name, resumed_name});
    sub->add_option("--duration,-t", options->duration_s, "End after this many seconds")->check(CLI::PositiveNumber);
    sub->add_option("--count,-n", options->count, "End after this many lines");
    sub->add_option("--filter,-f", options->filter,
                    "Only these, separated by commas (default: all but heartbeat and session)")
        ->delimiter(',')
        ->check(CLI::IsMember(names));
    sub->add_flag("--summary,-s", options->summary,
                  "At the end print the quality of each call, as `fxsctl quality` does");
    sub->add_flag("--brief,-b", options->brief,
                  "Leave out copies of RTCP packets; that media stop and resume is said all the same");
    sub->add_flag("--quiet,-q", options->quiet, "Print nothing but the summary")->needs("--summary");
    add_srtp_options(*sub, options->srtp);
    sub->add_flag("--show-keys", options->show_keys, "Print SRTP keys that commands and log lines hold");
    sub->add_option("--log-level,-L", options->log_level, "Set the log level first")->check(CLI::Range(0, 9));
    sub->add_option("--relay", options->relay_port,
                    "Stand in for the process on this UDP port: call control that is pointed here works as before, "
                    "and is observed")
        ->check(CLI::Range(1, 65535));
    sub->add_option("--relay-peer", options->relay_peer_port,
                    "Port of call control until it sends something (default 1299)")
        ->check(CLI::Range(1, 65535))
        ->needs("--relay");
}

}  // namespace fxsctl
