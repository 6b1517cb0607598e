#include <fxsmedia/resync.h>

#include <algorithm>

#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"

namespace fxsctl {
namespace {

void send_zeros(protocol::control_client& link, settings const& global, std::size_t count) {
    for (std::size_t sent = 0; sent < count;) {
        protocol::bytes const zeros(std::min(fxsmedia::resync_piece_bytes, count - sent));
        if (!link.send(zeros))
            throw failure(exit_code::local, "cannot send to the process: " + link.error());
        sent += zeros.size();
    }
    if (link.refused())
        throw failure(exit_code::no_answer, "nothing listens on " + global.process_address());
}

/// Whether the process carries out one command after the other. Its heartbeats look like answers and go on when it is
/// some bytes off; they do not come in threes.
bool answers(settings const& global) {
    try {
        return connection(global).answers_each_of(3);
    } catch (failure const& failed) {
        if (failed.code() != exit_code::no_answer)
            throw;
        return false;
    }
}

/// Returns whether it was necessary.
bool resync(settings const& global) {
    if (answers(global))
        return false;
    // A socket of its own, which never takes the session: the process drops the broken command when these zeros
    // complete it.
    auto link = protocol::control_client::connect_udp(global.host, global.port);
    for (int run = 0; run < fxsmedia::resync_runs; ++run) {
        send_zeros(link, global, fxsmedia::resync_bytes(run));
        if (answers(global))
            return true;
    }
    throw failure(exit_code::no_answer, global.process_address() +
                                            " takes datagrams and answers none, not even after those that complete "
                                            "any command: the process is stopped, busy or hangs");
}

void run_resync(settings const& global) {
    if (global.no_session)
        throw failure(exit_code::usage, "resync takes the session: leave --no-session out");
    bool const was_muted = resync(global);
    print(global, origin::result, {"resync", {{"process", global.process_address()}, {"was_muted", was_muted}}});
}

}  // namespace

void add_resync(CLI::App& app, program& p) {
    add_command(app, p, "resync", "Make a process answer again that waits for the rest of a broken command",
                run_resync);
}

}  // namespace fxsctl
