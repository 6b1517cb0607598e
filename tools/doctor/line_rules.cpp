#include <algorithm>

#include "tools/doctor/call_rules.h"
#include "tools/doctor/call_texts.h"

namespace doctor {
namespace {

std::string line_cure(call_facts const& call) {
    return "fxsctl tdm " + call_option(call) + " --line N";
}

/// The process sends reports and has made no packet for them.
bool counted_nothing(call_facts const& call) {
    return call.reports.sent >= 2 && call.reports.sent_packets == 0u;
}

/// Of a call that was put on this line.
std::vector<cause> causes_on(line_facts const& line, call_facts const& call) {
    auto const place = std::ranges::find(line.calls, call.call) - line.calls.begin();
    if (!line.trouble.empty())
        return {{line.is_open == clarity::yes ? "device-gone" : "device-missing", certainty::certain, line.trouble,
                 "start the line driver, then fxsctl tdm " + call_option(call) + " --none; fxsctl tdm " +
                     call_option(call) + " --line " + std::to_string(line.line)}};
    if (place >= 2 && place < static_cast<long>(line.calls.size()))
        return {{"third-call", certainty::certain,
                 format("line %u has calls %u and %u, a third one is ignored", line.line, line.calls[0], line.calls[1]),
                 "fxsctl tdm --call " + std::to_string(line.calls[1]) + " --none; fxsctl tdm " + call_option(call) +
                     " --line " + std::to_string(line.line)}};
    if (counted_nothing(call))
        return {{"line-silent", certainty::likely,
                 "the device " + line.path + " is open and gives the process no block", "look at the line driver"}};
    return {};
}

/// Of a call without packets whose line is not known.
std::vector<cause> causes_somewhere(observation const& seen, call_facts const& call) {
    std::vector<cause> causes;
    for (line_facts const& line : seen.lines)
        if (!line.trouble.empty() && line.is_open == clarity::yes)
            causes.push_back(
                {"device-gone", certainty::likely, line.trouble, "start the line driver, then " + line_cure(call)});
    bool const none_open =
        std::ranges::all_of(seen.lines, [](line_facts const& line) { return line.is_open == clarity::no; });
    bool const all_missing =
        std::ranges::none_of(seen.lines, [](line_facts const& line) { return line.trouble.empty(); });
    if (none_open && all_missing && !seen.lines.empty())
        causes.push_back({"device-missing", certainty::likely, seen.lines[0].trouble,
                          "start the process with the right --tdm, or the line driver"});
    std::string const evidence = "the process made no packet of the line's audio";
    causes.push_back({"no-line", none_open ? certainty::likely : certainty::possible,
                      evidence + (none_open ? ", no line's device is open" : ""), line_cure(call)});
    if (!none_open)
        causes.push_back({"third-call", certainty::possible, evidence + "; a line takes two calls",
                          "fxsctl tdm --call OTHER --none"});
    return causes;
}

/// What keeps a call from its line, in both directions; none when nothing is known to.
std::vector<cause> line_causes(observation const& seen, call_facts const& call) {
    if (call.set.line_known && !call.set.line)
        return {{"no-line", certainty::certain, "the call was put on no line", line_cure(call)}};
    if (call.set.line)
        return causes_on(seen.lines.at(*call.set.line), call);
    return counted_nothing(call) ? causes_somewhere(seen, call) : std::vector<cause>();
}

}  // namespace

verdict begin_verdict(observation const& seen, call_facts const& call, char const* direction) {
    return {.call = static_cast<int>(call.call),
            .line = call.set.line ? static_cast<int>(*call.set.line) : -1,
            .direction = direction,
            .causes = line_causes(seen, call)};
}

}  // namespace doctor
