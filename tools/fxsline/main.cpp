// fxsline: simulated telephone lines for a media process that has no line driver.
#include <signal.h>
#include <sys/signalfd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "tools/fxsline/driver_links.h"
#include "tools/fxsline/event_printer.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/line_mount.h"
#include "tools/fxsline/options.h"
#include "tools/fxsline/recordings.h"

namespace {

using namespace fxsline;

/// A descriptor that becomes readable when the program is to end.
int end_signals() {
    signal(SIGPIPE, SIG_IGN);  // the mount must not stay behind when the reader of our events goes away
    sigset_t signals;
    sigemptyset(&signals);
    for (int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

int failure(std::string const& error, int status) {
    std::fprintf(stderr, "fxsline: %s\n", error.c_str());
    return status;
}

event_printer::style print_style(program_options const& options) {
    if (options.quiet)
        return event_printer::style::quiet;
    return options.json ? event_printer::style::json : event_printer::style::text;
}

/// Prints or writes what is shown at the end; false if it could not be written.
bool conclude(program_options const& options, event_printer const& printer, line_bank& bank) {
    printer.totals(bank);
    if (options.led_file.empty()) {
        printer.led(bank);
        return true;
    }
    std::ofstream file(options.led_file, std::ios::binary);
    file << bank.led_text() << std::flush;
    return file.good();
}

int run(program_options const& options) {
    event_printer const printer(print_style(options));
    line_bank bank(options.bank, [&printer](line_event const& event) { printer.event(event); });
    int const stop_fd = end_signals();
    driver_links links(bank);
    std::string error = links.create(options.links);
    if (!error.empty())
        return failure(error, exit_no_links);
    line_mount mount(bank, &links);
    mount_error const result = mount.open(options.mount);
    if (result != mount_error::none)
        return failure(mount.error(), result == mount_error::no_fuse ? exit_no_fuse : exit_bad_mountpoint);
    recordings files;
    error = files.create(options.heard_files, options.said_files, bank);
    if (!error.empty())
        return failure(error, exit_not_recorded);
    printer.serving(options.mount.mountpoint, bank.lines());
    auto const clock = options.mount.stepped ? nullptr : std::make_unique<tick_clock>();
    mount.serve(clock.get(), stop_fd);
    mount.stop();
    if (!conclude(options, printer, bank))
        return failure("can't write " + options.led_file, exit_not_recorded);
    return files.finish() ? exit_ended : failure("a recording could not be written completely", exit_not_recorded);
}

}  // namespace

int main(int argc, char** argv) {
    parsed_options const parsed = parse_options(argc, argv);
    return parsed.options ? run(*parsed.options) : parsed.status;
}
