#include "tools/fxsctl/connection.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/subcommands.h"
#include "tools/protocol/tlv.h"

namespace fxsctl {
namespace {

// The process reads all datagrams as one stream of elements. After a broken one it may wait for 65,535 bytes of a
// value, and what follows may begin up to 3 bytes off an element. Zeros complete the value; the others are empty
// elements of tag 0, which it ignores. A session command behind them is then answered, or is misread because of 1 to 3
// zeros before it:
//
//     zeros  the session command is read as        the next element begins, modulo 4, behind it at
//     1      tag 0 with 0x1300 bytes               3
//     2      tag 0 with 0x13 bytes                 1
//     3      tag 0, then tag 0x1300, both empty    1
//
// (the same for several session commands in a row). A run of zeros that is longer than 0x1300 bytes and 1 modulo 4
// leads from 1 to 2, and from 2 and 3 to an answer. A process that is in order, but too busy to answer, goes from 0
// over 1 and 2 back to 0: after four runs nothing has changed for it, provided that the first one is a multiple of 4.
constexpr int runs = 4;
constexpr std::size_t misread_bytes = 0x1300;
constexpr std::size_t first_run_bytes = 65540;
constexpr std::size_t next_run_bytes = misread_bytes + 5;
static_assert(first_run_bytes >= protocol::tlv_longest_value_bytes + 3 && first_run_bytes % 4 == 0);
static_assert(next_run_bytes % 4 == 1);

constexpr std::size_t datagram_bytes = 32770;  // two at most; a larger one than 65,507 bytes can't be sent

void send_zeros(protocol::control_client& link, settings const& global, std::size_t count) {
    for (std::size_t sent = 0; sent < count;) {
        protocol::bytes const zeros(std::min(datagram_bytes, count - sent));
        if (!link.send(zeros))
            throw failure(exit_code::local, "cannot send to the process: " + link.error());
        sent += zeros.size();
    }
    if (link.refused())
        throw failure(exit_code::no_answer, "nothing listens on " + global.process_address());
}

/// As `fxsctl ping` sees it.
bool answers(settings const& global) {
    try {
        connection(global).run({});
        return true;
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
    for (int run = 0; run < runs; ++run) {
        send_zeros(link, global, run == 0 ? first_run_bytes : next_run_bytes);
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
