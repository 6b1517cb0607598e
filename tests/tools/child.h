#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// A program run by a test: what it writes and how it ends. Killed with its owner.
class child {
public:
    /// args[0] is the path.
    explicit child(std::vector<std::string> args) {
        std::vector<char*> argv;
        for (std::string& argument : args)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        int ends[2][2];
        if (pipe2(ends[0], O_CLOEXEC) != 0 || pipe2(ends[1], O_CLOEXEC) != 0)
            throw std::runtime_error("pipe");
        pid = fork();
        if (pid == 0) {
            dup2(ends[0][1], STDOUT_FILENO);
            dup2(ends[1][1], STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
        for (int const i : {0, 1}) {
            close(ends[i][1]);
            streams[i] = {ends[i][0], POLLIN, 0};
        }
    }
    child(child const&) = delete;
    ~child() {
        if (pid > 0)
            end(SIGKILL);
    }

    /// Reads until `text` stands in what was written to either stream. false after 60 s or at the end of both.
    bool wait_for_text(std::string const& text) {
        return read_until([&] { return (out + "\n" + err).find(text) != std::string::npos; });
    }

    /// Takes the next line, with its end, from what was written to standard output; empty at the end.
    std::string line() {
        read_until([this] { return out.find('\n') != std::string::npos; });
        std::string rest = out.substr(std::min(out.size(), out.find('\n') + 1));
        out.resize(out.size() - rest.size());
        return std::exchange(out, rest);
    }

    /// Reads to the end and returns the exit code, or the signal that ended it, negated (SIGKILL after 60 s).
    int wait() {
        if (!read_until([this] { return std::max(streams[0].fd, streams[1].fd) < 0; }))
            kill(pid, SIGKILL);
        int status = 0;
        waitpid(std::exchange(pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int end(int signal_number) {
        kill(pid, signal_number);
        return wait();
    }

    std::string out, err;

private:
    template <class condition>
    bool read_until(condition done) {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!done() && std::max(streams[0].fd, streams[1].fd) >= 0 &&
               std::chrono::steady_clock::now() < deadline) {
            poll(streams, 2, 1000);
            for (int const i : {0, 1}) {
                char buffer[4096];
                ssize_t const size =
                    streams[i].revents == 0 ? -1 : read(streams[i].fd, buffer, sizeof buffer);
                if (size > 0)
                    (i == 0 ? out : err).append(buffer, static_cast<std::size_t>(size));
                else if (streams[i].revents != 0)
                    close(std::exchange(streams[i].fd, -1));
            }
        }
        return done();
    }

    pid_t pid = -1;
    pollfd streams[2];
};
