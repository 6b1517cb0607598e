#include "tests/tools/fxsctl/child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>

namespace {

std::vector<char*> c_strings(const std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (const std::string& text : texts) {
        result.push_back(const_cast<char*>(text.c_str()));
    }
    result.push_back(nullptr);
    return result;
}

void read_some(int& fd, std::string& into) {
    std::array<char, 4096> buffer{};
    const ssize_t size = read(fd, buffer.data(), buffer.size());
    if (size > 0) {
        into.append(buffer.data(), static_cast<std::size_t>(size));
    } else {
        close(fd);
        fd = -1;
    }
}

}  // namespace

child::child(const std::vector<std::string>& args, const std::vector<std::string>& environment) {
    const std::vector<char*> argv = c_strings(args);
    const std::vector<char*> envp = c_strings(environment);
    int out_pipe[2];
    int err_pipe[2];
    if (pipe2(out_pipe, O_CLOEXEC) != 0 || pipe2(err_pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe");
    }
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out_pipe[1], STDOUT_FILENO);
        dup2(err_pipe[1], STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(out_pipe[1]);
    close(err_pipe[1]);
    out_fd_ = out_pipe[0];
    err_fd_ = err_pipe[0];
}

child::~child() {
    if (pid_ > 0) {
        kill();
        waitpid(pid_, nullptr, 0);
    }
    for (const int fd : {out_fd_, err_fd_}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

bool child::pump(int timeout_ms) {
    std::array<pollfd, 2> ready{{{out_fd_, POLLIN, 0}, {err_fd_, POLLIN, 0}}};
    poll(ready.data(), ready.size(), timeout_ms);
    if (ready[0].revents != 0) {
        read_some(out_fd_, out);
    }
    if (ready[1].revents != 0) {
        read_some(err_fd_, err);
    }
    return out_fd_ >= 0 || err_fd_ >= 0;
}

bool child::wait_for_text(const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    const auto seen = [&] { return (out + "\n" + err).find(text) != std::string::npos; };
    while (!seen() && std::chrono::steady_clock::now() < deadline) {
        if (!pump(100)) {
            break;
        }
    }
    return seen();
}

int child::wait() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (pump(1000)) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill();
        }
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void child::kill() {
    ::kill(pid_, SIGKILL);
}

void child::terminate() {
    ::kill(pid_, SIGTERM);
}
