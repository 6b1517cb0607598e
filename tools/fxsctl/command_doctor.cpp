#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/doctor/rules.h"
#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/doctor_gather.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

using nlohmann::ordered_json;

constexpr char const* certainty_names[] = {"certain", "likely", "possible"};
constexpr char const* state_names[] = {"OK", "NO AUDIO", "BAD AUDIO", "UNSEEN"};

template <class Enum, std::size_t n>
char const* name_of(char const* const (&names)[n], Enum value) {
    return names[static_cast<std::size_t>(value)];
}

/// What the doctor could not use, and what it did to the session.
std::string how_it_looked(doctor::observation const& seen) {
    std::string text;
    if (!seen.through_monitor && seen.process.listens)
        text =
            "the session was taken for this: whoever had it hears nothing more. Commands given before were not seen, "
            "so "
            "payload map, destination, keys and line of the calls are not known; run `fxsctl monitor` (or --relay) "
            "from the beginning";
    else if (seen.through_monitor && !seen.commands_seen)
        text = "the monitor does not tell what commands have set";
    if (!seen.packets_seen && !seen.calls.empty())
        text += std::string(text.empty() ? "" : ". ") + "Packets were not seen (" + seen.packets_obstacle + ")";
    return text;
}

ordered_json to_json(doctor::verdict const& one) {
    ordered_json causes = ordered_json::array();
    for (doctor::cause const& cause : one.causes)
        causes.push_back({{"cause", cause.id},
                          {"certainty", name_of(certainty_names, cause.sure)},
                          {"evidence", cause.evidence},
                          {"cure", cause.cure}});
    ordered_json line{{"result", "verdict"}, {"direction", one.direction}};
    line["call"] = one.call >= 0 ? ordered_json(one.call) : ordered_json();
    line["line"] = one.line >= 0 ? ordered_json(one.line) : ordered_json();
    line["state"] = name_of(state_names, one.state);
    line["causes"] = causes;
    if (!one.remark.empty())
        line["remark"] = one.remark;
    return line;
}

void print_text(doctor::verdict const& one) {
    std::string const where = one.call < 0    ? "process"
                              : one.line >= 0 ? "call " + std::to_string(one.call) + " line " + std::to_string(one.line)
                                              : "call " + std::to_string(one.call);
    std::cout << where << "  " << one.direction << "  " << (one.call < 0 ? "FAULT" : name_of(state_names, one.state));
    if (!one.remark.empty())
        std::cout << ": " << one.remark;
    std::cout << "\n";
    int number = 1;
    for (doctor::cause const& cause : one.causes)
        std::cout << " " << number++ << " " << name_of(certainty_names, cause.sure) << "  " << cause.evidence << " ["
                  << cause.id << "]\n   cure: " << cause.cure << "\n";
}

struct doctor_options {
    std::optional<std::uint16_t> call;
    double seconds = 5;
};

exit_code run_doctor(doctor_options const& options, settings const& global) {
    doctor::observation const seen = gather(global, options.call, options.seconds);
    std::vector<doctor::verdict> const verdicts = doctor::examine(seen);
    std::string const limits = how_it_looked(seen);
    for (doctor::verdict const& one : verdicts)
        if (global.json)
            std::cout << to_json(one).dump(-1, ' ', false, ordered_json::error_handler_t::replace) << "\n";
        else
            print_text(one);
    if (verdicts.empty())
        std::cerr << "fxsctl: no call is open" << std::endl;
    if (!limits.empty())
        std::cerr << "fxsctl: " << limits << std::endl;
    std::cout << std::flush;
    return !seen.process.listens          ? exit_code::no_answer
           : doctor::is_healthy(verdicts) ? exit_code::ok
                                          : exit_code::fault;
}

}  // namespace

void add_doctor(CLI::App& app, program& p) {
    auto options = std::make_shared<doctor_options>();
    CLI::App* sub = add_command(app, p, "doctor", "Why is there no audio? Look at all calls for some seconds",
                                [options](settings const& global) {
                                    if (exit_code const found = run_doctor(*options, global); found != exit_code::ok)
                                        throw ended(found);
                                });
    sub->add_option("--call,-c", options->call, "Only this call, 0 to 7 (default: all that are open)")
        ->check(call_index());
    sub->add_option("--seconds", options->seconds, "How long to look (default 5; less than 4.5 sees too few reports)")
        ->check(CLI::Range(0.1, 3600.0));
}

}  // namespace fxsctl
