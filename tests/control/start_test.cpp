// The program itself, run by the emulator where it is another machine's.

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "tests/support/udp_peer.h"

namespace {

pid_t start(std::vector<std::string> arguments, std::string const& error_file) {
    arguments.insert(arguments.begin(), FXSMEDIA_BINARY);
    if (*FXSMEDIA_EMULATOR)
        arguments.insert(arguments.begin(), FXSMEDIA_EMULATOR);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t const child = fork();
    if (child == 0) {
        [[maybe_unused]] FILE* const file = freopen(error_file.c_str(), "w", stderr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    return child;
}

std::optional<std::string> next_datagram(int fd) {
    pollfd wanted{fd, POLLIN, 0};
    char data[100];
    if (poll(&wanted, 1, 20000) != 1)
        return std::nullopt;
    ssize_t const n = recv(fd, data, sizeof data, 0);
    return std::string(data, n > 0 ? static_cast<std::size_t>(n) : 0);
}

TEST(start, version) {
    std::string const error_file = testing::TempDir() + "version-" + std::to_string(getpid());
    int status = -1;
    waitpid(start({"--version"}, error_file), &status, 0);
    EXPECT_EQ(status, 0);
    std::string text(100, '\0');
    FILE* const file = fopen(error_file.c_str(), "r");
    text.resize(fread(text.data(), 1, text.size(), file));
    fclose(file);
    unlink(error_file.c_str());
    EXPECT_EQ(text, "Version: 3159\n");
}

/// The priority with which a process runs in turn with others of that priority; 0: an ordinary process. (musl's functions
/// for it only ever answer ENOSYS.)
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
    std::string const beat("\0\x13\0\0", 4);
    for (bool const debug : {true, false}) {
        udp_peer const first, second;
        ip_port process = udp_peer().address();  // a port that was free a moment ago
        std::vector<std::string> arguments{"--port",      std::to_string(process.port),
                                           "--dest-port", std::to_string(first.address().port),
                                           "--tdm",       "/nowhere"};
        if (debug)
            arguments.push_back("--debug");
        pid_t const child = start(arguments, "/dev/null");
        EXPECT_EQ(next_datagram(first.fd()), beat);
        EXPECT_EQ(realtime_priority(child), debug ? 0 : reachable_priority());
        EXPECT_EQ(next_datagram(first.fd()), beat);
        second.send(process, beat);
        EXPECT_EQ(next_datagram(second.fd()), beat);
        EXPECT_EQ(next_datagram(second.fd()), beat);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

}  // namespace
