// Keeps a test program that uses a mount which it serves itself from becoming immortal: if its serving thread crashes
// or hangs, the kernel lets no other thread of it go that waits for an answer, not even by SIGKILL. A child process
// cuts the connection and kills the test when it takes longer than a limit far beyond any honest run.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

class mount_guard {
public:
    // Before the mount is served. `mountpoint` is absolute.
    explicit mount_guard(const std::string& mountpoint) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        child_ = fork();
        if (child_ == 0) {
            close(ends[1]);
            watch(ends[0], mountpoint.c_str());
        }
        close(ends[0]);
        alive_ = ends[1];
    }
    mount_guard(const mount_guard&) = delete;
    ~mount_guard() {
        close(alive_);
        waitpid(child_, nullptr, 0);
    }

private:
    static constexpr int limit_ms = 60000;

    [[noreturn]] static void watch(int test_ended, const char* mountpoint) {
        const pid_t test = getppid();
        pollfd wait{test_ended, 0, 0};  // hangs up when the test closes its end
        if (poll(&wait, 1, limit_ms) == 0) {
            kill(test, SIGKILL);
            umount2(mountpoint, MNT_FORCE);
            umount2(mountpoint, MNT_DETACH);
        }
        _exit(0);
    }

    pid_t child_ = -1;
    int alive_ = -1;
};
