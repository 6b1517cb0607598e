#include <cstdint>
#include <iostream>
#include <optional>
#include <string_view>

#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/call_check.h"
#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/media_options.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

/// A tone table of the process: the country whose national tones (ITU-T E.180 supplement 2) it has, or nothing, and
/// what distinguishes it: frequencies in Hz, on and off times in s.
struct tone_set {
    std::uint8_t number;  ///< 1 to 16
    std::string_view name;
    std::string_view ring_back;
    std::string_view dial;
};

struct tone_kind {
    std::uint8_t number;  ///< 1 to 4
    std::string_view name;
    std::string_view meaning;
};

constexpr tone_set tone_sets[] = {
    {1, "us", "440+480 2/4", "350+440"},
    {2, "uk", "400+450 0.4/0.2/0.4/2", "350+450"},
    {3, "de", "425 1/4", "425"},
    {4, "at", "420+450 1/5", "425"},
    {5, "nl", "425+450 1/4", "150+450"},
    {6, "se", "425 1/5", "425"},
    {7, "", "425 1/4, busy 0.5/0.5, congestion 0.25/0.25", "425"},
    {8, "", "425 1/4, busy 0.25/0.25", "425"},
    {9, "jp", "400 1/2", "400"},
    {10, "", "425+500 1/4", "425"},
    {11, "it", "425 1/4", "425 0.6/1/0.2/0.2"},
    {12, "fr", "440 1.5/3.5", "440"},
    {13, "", "400 0.4/0.2/0.4/2", "400+425"},
    {14, "", "400+440 1/3", "400"},
    {15, "es", "425 1.5/3", "425"},
    {16, "", "400 0.4/0.2/0.4/2", "425"},
};

constexpr tone_kind tone_kinds[] = {
    {1, "ringback", "the other side is rung"},
    {2, "busy", "the other side is busy"},
    {3, "congestion", "no way through (reorder)"},
    {4, "dial", "dial now"},
};

/// By name or number; nullopt when there is none.
template <class Table>
std::optional<std::uint8_t> find(Table const& table, std::string_view text) {
    for (auto const& entry : table)
        if ((!text.empty() && entry.name == text) || std::to_string(entry.number) == text)
            return entry.number;
    return std::nullopt;
}

struct play_options {
    std::uint16_t call = 0;
    std::string set;
    std::string kind;
};

protocol::playback_command playback_from(play_options const& options) {
    if (options.set == "stop") {
        if (!options.kind.empty())
            throw failure(exit_code::usage, "play stop takes no kind of tone");
        return {options.call, 0, 0};
    }
    auto const set = find(tone_sets, options.set);
    auto const kind = find(tone_kinds, options.kind);
    if (!set) {
        throw failure(exit_code::usage,
                      "tone set: \"" + options.set + "\" is neither 1 to 16 nor a name; `fxsctl tones` lists them");
    }
    if (!kind) {
        throw failure(exit_code::usage,
                      "kind of tone: \"" + options.kind + "\" is none of ringback, busy, congestion, dial, 1 to 4");
    }
    return {options.call, *set, *kind};
}

void list_tones(settings const& global) {
    for (tone_set const& set : tone_sets) {
        print(global, origin::result,
              {"tone-set",
               {{"set", std::int64_t{set.number}},
                {"name", std::string(set.name)},
                {"ringback", std::string(set.ring_back)},
                {"dial", std::string(set.dial)}}});
    }
    for (tone_kind const& kind : tone_kinds) {
        print(global, origin::result,
              {"tone-kind",
               {{"kind", std::int64_t{kind.number}},
                {"name", std::string(kind.name)},
                {"meaning", std::string(kind.meaning)}}});
    }
}

struct dtmf_options {
    std::uint16_t call = 0;
    std::string digits;
    std::vector<std::uint16_t> codes;
};

protocol::bytes digits_from(dtmf_options const& options) {
    static constexpr std::string_view keys = "0123456789*#ABCD";  // the event codes of RFC 4733 section 3.2
    std::vector<std::uint16_t> codes;
    for (char const c : options.digits) {
        std::size_t const code = keys.find(c);
        if (code == std::string_view::npos) {
            throw failure(exit_code::usage, "digits: '" + std::string(1, c) + "' is none of 0 to 9, *, #, A to D");
        }
        codes.push_back(static_cast<std::uint16_t>(code));
    }
    codes.insert(codes.end(), options.codes.begin(), options.codes.end());
    if (codes.empty())
        throw failure(exit_code::usage, "no digits were given");
    protocol::bytes commands;
    for (std::uint16_t const code : codes) {
        protocol::bytes const one = protocol::encode(protocol::dtmf_command{options.call, code});
        commands.insert(commands.end(), one.begin(), one.end());
    }
    return commands;
}

}  // namespace

void add_tones(CLI::App& app, program& p) {
    auto play = std::make_shared<play_options>();
    CLI::App* sub = add_command(app, p, "play", "Play a tone to the line of a call, or stop it (`play stop`)",
                                [play](settings const& global) {
                                    protocol::playback_command const command = playback_from(*play);
                                    connection link(global);
                                    require_open(link, command.call.value_or(0));
                                    require_any_line(link, command.call.value_or(0));
                                    link.run(protocol::encode(command));
                                });
    sub->add_option("--call,-c", play->call, "Call index, 0 to 7")->required()->check(call_index());
    sub->add_option("set", play->set, "Tone set: a country like us, or 1 to 16 (see `fxsctl tones`); or stop")
        ->required();
    sub->add_option("kind", play->kind, "ringback, busy, congestion, dial, or 1 to 4");

    add_command(app, p, "tones", "List the tone sets and kinds", list_tones);

    auto dtmf = std::make_shared<dtmf_options>();
    sub = add_command(app, p, "dtmf", "Send digits to the peer, one every 500 ms", [dtmf](settings const& global) {
        protocol::bytes const commands = digits_from(*dtmf);
        connection link(global);
        require_open(link, dtmf->call);
        require_any_line(link, dtmf->call);
        require_destination(link, dtmf->call);
        auto const ledger = link.ask_ledger();
        known_call const* const call = ledger ? ledger->find(dtmf->call) : nullptr;
        if (call != nullptr && call->send && call->event_payload_type == 0)
            std::cerr << "fxsctl: " << digits_in_band << std::endl;
        link.run(commands);
    });
    sub->add_option("--call,-c", dtmf->call, "Call index, 0 to 7")->required()->check(call_index());
    sub->add_option("digits", dtmf->digits,
                    "Digits 0 to 9, * and # (quote them in a shell); A to D only as telephone events");
    sub->add_option("--code", dtmf->codes, "Further telephone-event codes, 0 to 255")->check(CLI::Range(0, 255));
}

}  // namespace fxsctl
