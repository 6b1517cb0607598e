// The program itself, run by the emulator where it is another machine's; tests/e2e starts it on this one.

#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "tests/support/udp_peer.h"

namespace {

std::string next_datagram(udp_peer const& peer) {
    char data[100];
    ssize_t const n = shows(peer.fd(), POLLIN, 20000) ? recv(peer.fd(), data, sizeof data, 0) : 0;
    return to_hex({data, static_cast<std::size_t>(n)});
}

/// The priority with which a process runs in turn with others of that priority; 0: an ordinary process. (musl's
/// functions for it only ever answer ENOSYS.)
int realtime_priority(pid_t process) {
    int priority = 0;
    syscall(SYS_sched_getparam, process, &priority);
    return syscall(SYS_sched_getscheduler, process) == SCHED_RR ? priority : 0;
}

/// What this program reaches when it asks for the middle priority, 50: nothing without the right to it.
int reachable_priority() {
    pid_t const child = fork();
    if (child == 0) {
        int const middle = 50;
        syscall(SYS_sched_setscheduler, 0, SCHED_RR, &middle);
        _exit(realtime_priority(0));
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

TEST(start, beats_and_answers_a_session) {
    for (bool const debug : {true, false}) {
        udp_peer const first, second;
        ip_port const process = udp_peer().address();  // a port that was free a moment ago
        std::string const port = std::to_string(process.port), dest = std::to_string(first.address().port);
        char const* const arguments[] = {FXSMEDIA_EMULATOR,
                                         FXSMEDIA_BINARY,
                                         "--tdm",
                                         "/nowhere",
                                         "--port",
                                         port.c_str(),
                                         "--dest-port",
                                         dest.c_str(),
                                         debug ? "--debug" : nullptr,
                                         nullptr};
        auto const argv = const_cast<char* const*>(arguments + (*FXSMEDIA_EMULATOR ? 0 : 1));
        pid_t child = 0;
        ASSERT_EQ(posix_spawnp(&child, argv[0], nullptr, nullptr, argv, environ), 0);
        EXPECT_EQ(next_datagram(first), "00130000");
        EXPECT_EQ(realtime_priority(child), debug ? 0 : reachable_priority());
        EXPECT_EQ(next_datagram(first), "00130000");
        second.send(process, from_hex("00130000"));
        EXPECT_EQ(next_datagram(second) + next_datagram(second), "0013000000130000");
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

}  // namespace
