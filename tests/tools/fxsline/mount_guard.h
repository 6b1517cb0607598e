#pragma once

#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

/// Keeps a test program that uses a mount which it serves itself from becoming immortal: if its serving thread crashes
/// or hangs, the kernel lets no other thread of it go that waits for an answer, not even by SIGKILL. A child process
/// cuts the connection and kills the test when it takes longer than a limit far beyond any honest run.
class mount_guard {
public:
    /// Before the mount is served. `mountpoint` is absolute.
    explicit mount_guard(std::string const& mountpoint) {
        constexpr unsigned limit_seconds = 60;
        pid_t const test = getpid();
        child = fork();
        if (child != 0)
            return;
        sleep(limit_seconds);
        if (getppid() == test)
            kill(test, SIGKILL);
        umount2(mountpoint.c_str(), MNT_FORCE);
        umount2(mountpoint.c_str(), MNT_DETACH);
        _exit(0);
    }
    mount_guard(mount_guard const&) = delete;
    ~mount_guard() {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }

private:
    pid_t child;
};
