// fxsline: simulated telephone lines for a media process that has no line driver.
#include <signal.h>
#include <sys/signalfd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "tools/fxsline/event_printer.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/line_mount.h"
#include "tools/fxsline/options.h"
#include "tools/fxsline/recordings.h"

namespace {

using namespace fxsline;

// A descriptor that becomes readable when the program shall end.
int end_signals() {
    signal(SIGPIPE, SIG_IGN);  // a reader of our events that goes away must not leave the mount behind
    sigset_t signals;
    sigemptyset(&signals);
    for (int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, number);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

int failure(const std::string& error, int status) {
    std::fprintf(stderr, "fxsline: %s\n", error.c_str());
    return status;
}

int run(const program_options& options) {
    const event_printer printer(options.quiet  ? event_printer::style::quiet
                                : options.json ? event_printer::style::json
                                               : event_printer::style::text);
    line_bank bank(options.bank, [&printer](const line_event& event) { printer.event(event); });
    const int stop_fd = end_signals();
    line_mount mount(bank);
    const mount_error result = mount.open(options.mount);
    if (result != mount_error::none) {
        return failure(mount.error(), result == mount_error::no_fuse ? exit_no_fuse : exit_bad_mountpoint);
    }
    recordings files;
    const std::string error = files.create(options.heard_files, options.said_files, bank);
    if (!error.empty()) {
        return failure(error, exit_not_recorded);
    }
    printer.serving(options.mount.mountpoint, bank.lines());
    const auto clock = options.mount.stepped ? nullptr : std::make_unique<tick_clock>();
    mount.serve(clock.get(), stop_fd);
    mount.stop();
    printer.totals(bank);
    return files.finish() ? exit_ended
                          : failure("a recording could not be written completely", exit_not_recorded);
}

}  // namespace

int main(int argc, char** argv) {
    const parsed_options parsed = parse_options(argc, argv);
    return parsed.options ? run(*parsed.options) : parsed.status;
}
