#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

inline std::vector<std::string> split(std::string const& text, char separator) {
    std::istringstream in(text);
    std::vector<std::string> parts;
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

/// A program run by a test: what it writes and how it ends. Killed with its owner.
class child {
public:
    /// args[0] is the path.
    explicit child(std::vector<std::string> args) {
        std::vector<char*> argv;
        for (std::string& argument : args)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when this program is killed
            dup2(files[0], STDOUT_FILENO);
            dup2(files[1], STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
    }
    child(child const&) = delete;
    ~child() {
        if (pid > 0)
            end(SIGKILL);
        for (int const file : files)
            close(file);
    }

    /// Waits until `text` stands in what was written to either stream. false after 60 s.
    bool wait_for_text(std::string const& text) {
        return wait_until([&] { return (read_output(), out + "\n" + err).find(text) != std::string::npos; });
    }

    /// Waits for the end and returns the exit code, or the signal that ended it, negated (SIGKILL after 60 s).
    int wait() {
        if (pid <= 0)
            return -1;
        int status = 0;
        if (!wait_until([&] { return waitpid(pid, &status, WNOHANG) == pid; })) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
        }
        pid = -1;
        read_output();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    /// The same after a signal; -1 when it has been waited for already (kill() would take -1 for every process).
    int end(int signal_number) {
        if (pid <= 0)
            return -1;
        kill(pid, signal_number);
        return wait();
    }

    pid_t id() const { return pid; }
    bool alive() {
        if (pid > 0 && waitpid(pid, nullptr, WNOHANG) == pid)
            pid = -1;
        return pid > 0;
    }
    /// Brings `out` and `err` up to date, which waiting does too.
    void read_output() {
        for (auto const& [file, text] : {std::pair{files[0], &out}, {files[1], &err}}) {
            char bytes[4096];
            for (ssize_t n; (n = pread(file, bytes, sizeof bytes, static_cast<off_t>(text->size()))) > 0;)
                text->append(bytes, static_cast<std::size_t>(n));
        }
    }

    std::string out, err;

private:
    template <class condition>
    static bool wait_until(condition done) {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            usleep(1000);
        }
        return true;
    }

    pid_t pid = -1;
    int const files[2] = {memfd_create("stdout", MFD_CLOEXEC), memfd_create("stderr", MFD_CLOEXEC)};
};
