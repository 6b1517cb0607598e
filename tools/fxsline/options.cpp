#include "tools/fxsline/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

namespace fxsline {

namespace {

constexpr char const* description =
    "Simulated telephone lines: serves MOUNTPOINT/sdt0 to sdt3, which behave as a line driver's audio "
    "devices.";

constexpr char const* footer = R"(
Files in MOUNTPOINT:
  sdtN         audio device of line N: 16-bit samples, 8 kHz, blocks of 160 bytes
  lineN.say    write "wav PATH", "loop PATH", "tone HZ[+HZ] DBFS" or "silence"
  lineN.stats  state and counters
  clock        ticks of 10 ms so far; with --stepped, a number written lets so many pass
  led          commands to the call LED so far: "TIME_MS on" or "off" a row, then a drawing, # is 50 ms lit
  driver.say   with --pipe: bytes written go to the process as lines of the driver
  signal.say   with --signal: hexadecimal bytes written go to the process

Exit status: 0 ended by a signal or unmounted, 1 bad options or speech file, 2 FUSE can't be used,
3 bad mount point, 4 a recording could not be written, 5 pipe or signalling device could not be created.

Example:
  mkdir -p /tmp/lines
  fxsline /tmp/lines --say 0=hello.wav --delay 0=500 --hear 0=heard0.wav --tone 1=440,-20 &
  fxsmedia --port 5500 --tdm /tmp/lines/sdt)";

/// The options as they are written, before their meaning is checked.
struct raw_options {
    std::vector<std::string> say, tone, hear, said, delay, answer, hook, dial;
    std::vector<unsigned> loop, from_start;
    std::string pipe_script;
    unsigned backlog_blocks = line_config{}.backlog_blocks;
    unsigned room_blocks = line_config{}.play_queue_blocks;
};

void declare(CLI::App& app, program_options& options, raw_options& raw) {
    app.add_option("MOUNTPOINT", options.mount.mountpoint, "Existing directory for the files")->required();
    app.add_option("--say", raw.say, "N=FILE: line N says the WAV file (8 kHz)")->allow_extra_args(false);
    app.add_option("--tone", raw.tone, "N=HZ[+HZ...],DBFS: line N says a tone")->allow_extra_args(false);
    app.add_option("--loop", raw.loop, "N: line N says its file over and over")
        ->check(CLI::Range(0, 3))
        ->allow_extra_args(false);
    app.add_option("--delay", raw.delay, "N=MS: silence before the speech of line N")->allow_extra_args(false);
    app.add_option("--from-start", raw.from_start,
                   "N: speech of line N starts with the clock, not when its device is opened first")
        ->check(CLI::Range(0, 3))
        ->allow_extra_args(false);
    app.add_option("--hear", raw.hear, "N=FILE: record what line N hears to a WAV file")->allow_extra_args(false);
    app.add_option("--said", raw.said, "N=FILE: record what line N says, on the same time axis")
        ->allow_extra_args(false);
    app.add_option("--backlog", raw.backlog_blocks, "Unread blocks kept while a device is open")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--room", raw.room_blocks, "Blocks that can be written ahead")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_option("--answer", raw.answer, "COMMAND=VALUE: what the driver answers to a base command (0)")
        ->allow_extra_args(false);
    app.add_option("--led-timeline", options.led_file, "Write the call LED's timeline there at the end");
    app.add_option("--pipe", options.links.pipe, "Message pipe of the driver: named pipes BASE0 and BASE1");
    app.add_option("--pipe-script", raw.pipe_script, "File with rows 'MS TEXT': the driver says it then")
        ->check(CLI::ExistingFile);
    app.add_option("--hook", raw.hook, "N=MS[,MS...]: the driver says off-hook N, on-hook N, ... then")
        ->allow_extra_args(false);
    app.add_option("--dial", raw.dial, "N=KEYS@MS: the driver says that it saw these keys on line N, from then on")
        ->allow_extra_args(false);
    app.add_option("--ring", options.links.ring,
                   "Ring device: named pipes BASE0 to BASE3, what is written is an event");
    app.add_option("--signal", options.links.signal, "Signalling device: a link to a pseudo-terminal");
    app.add_flag("--stepped", options.mount.stepped, "The clock stands until the file 'clock' is written to");
    app.add_flag("--allow-other", options.mount.allow_other, "Other users may use the files");
    app.add_flag("--json", options.json, "Print events as JSON, one object a line");
    app.add_flag("--quiet", options.quiet, "Print no events");
    app.footer(footer);
}

/// Splits "N=VALUE"; N must be below `limit`.
std::pair<unsigned, std::string> numbered(std::string const& text, unsigned limit) {
    size_t const equals = text.find('=');
    unsigned number = 0;
    if (equals == text.npos || !CLI::detail::lexical_cast(text.substr(0, equals), number) || number >= limit) {
        throw CLI::ValidationError("'" + text + "' is not N=VALUE with N from 0 to " + std::to_string(limit - 1));
    }
    return {number, text.substr(equals + 1)};
}

template <class T>
T to_number(std::string const& text, T lowest, T highest) {
    T number{};
    if (!CLI::detail::lexical_cast(text, number) || number < lowest || number > highest) {
        throw CLI::ValidationError("'" + text + "' is not a number from " + std::to_string(lowest) + " to " +
                                   std::to_string(highest));
    }
    return number;
}

template <class T>
T checked(outcome<T> made) {
    if (!made.value)
        throw CLI::ValidationError(made.error);
    return std::move(*made.value);
}

void fill_speech(bank_config& bank, raw_options const& raw) {
    auto const lines = static_cast<unsigned>(bank.lines.size());
    auto const loops = [&raw](unsigned line) { return std::ranges::count(raw.loop, line) > 0; };
    for (std::string const& text : raw.say) {
        auto const [line, file] = numbered(text, lines);
        bank.lines[line].says = checked(load_speech(file, loops(line)));
    }
    for (std::string const& text : raw.tone) {
        auto [line, tone] = numbered(text, lines);
        std::ranges::replace(tone, ',', ' ');
        bank.lines[line].says = checked(parse_speech("tone " + tone));
    }
    for (std::string const& text : raw.delay) {
        auto const [line, delay] = numbered(text, lines);
        bank.lines[line].delay_ms = to_number(delay, 0U, 86400000U);
    }
    for (unsigned line : raw.from_start)
        bank.lines[line].from_clock_start = true;
    for (unsigned line : raw.loop) {
        if (!bank.lines[line].says.describe().starts_with("loop")) {
            throw CLI::ValidationError("--loop " + std::to_string(line) + " needs --say " + std::to_string(line) +
                                       "=FILE");
        }
    }
}

void fill_script(links_config& links, raw_options const& raw, unsigned lines) {
    if (links.pipe.empty() && !(raw.pipe_script.empty() && raw.hook.empty() && raw.dial.empty()))
        throw CLI::ValidationError("--pipe-script, --hook and --dial need --pipe");
    if (!raw.pipe_script.empty()) {
        std::ifstream file(raw.pipe_script, std::ios::binary);
        std::string const rows{std::istreambuf_iterator<char>(file), {}};
        if (!file)
            throw CLI::ValidationError("can't read " + raw.pipe_script);
        links.script = checked(parse_pipe_script(rows));
    }
    for (std::string const& text : raw.hook) {
        auto const [line, times] = numbered(text, lines);
        std::vector<unsigned> times_ms;
        for (std::string const& time : CLI::detail::split(times, ','))
            times_ms.push_back(to_number(time, 0U, 86400000U));
        std::ranges::copy(hook_changes(line, times_ms), std::back_inserter(links.script));
    }
    for (std::string const& text : raw.dial) {
        auto const [line, dialled] = numbered(text, lines);
        size_t const at = dialled.find('@');
        std::string const keys = dialled.substr(0, at);
        if (at == dialled.npos || keys.empty() || keys.find_first_not_of("0123456789*#ABCD") != keys.npos)
            throw CLI::ValidationError("'" + text + "' is not N=KEYS@MS with keys 0 to 9, *, #, A to D");
        std::ranges::copy(key_presses(line, keys, to_number(dialled.substr(at + 1), 0U, 86400000U)),
                          std::back_inserter(links.script));
    }
}

void fill(program_options& options, raw_options const& raw) {
    auto const lines = static_cast<unsigned>(options.bank.lines.size());
    for (line_config& line : options.bank.lines) {
        line.backlog_blocks = raw.backlog_blocks;
        line.play_queue_blocks = raw.room_blocks;
    }
    fill_speech(options.bank, raw);
    fill_script(options.links, raw, lines);
    for (std::string const& text : raw.hear)
        options.heard_files.insert_or_assign(numbered(text, lines).first, numbered(text, lines).second);
    for (std::string const& text : raw.said)
        options.said_files.insert_or_assign(numbered(text, lines).first, numbered(text, lines).second);
    for (std::string const& text : raw.answer) {
        auto const [command, value] = numbered(text, 4096);
        options.bank.base_answers[command] = to_number(value, -4095, 0x7fffffff);
    }
}

}  // namespace

parsed_options parse_options(int argc, char** argv) {
    CLI::App app(description, "fxsline");
    app.set_version_flag("--version", "fxsline " FXSMEDIA_VERSION);
    program_options options;
    options.mount.stepped = false;
    raw_options raw;
    declare(app, options, raw);
    try {
        app.parse(argc, argv);
        fill(options, raw);
    } catch (CLI::ParseError const& error) {
        return {std::nullopt, app.exit(error) == 0 ? exit_ended : exit_bad_options};
    }
    return {std::move(options), exit_ended};
}

}  // namespace fxsline
