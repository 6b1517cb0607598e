// A program run by a test: its output, its exit code, and its end when the test ends first.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class child {
public:
    // args[0] is the path. `environment` holds "NAME=value" entries and is all the program gets.
    explicit child(const std::vector<std::string>& args, const std::vector<std::string>& environment = {});
    ~child();
    child(const child&) = delete;

    // Reads until `text` stands in what was written to either stream. false after 10 s or at the end of both.
    bool wait_for_text(const std::string& text);

    // Reads to the end and returns the exit code; -1 when a signal ended it (SIGKILL if it is not done in 60 s).
    int wait();

    // SIGKILL: the program gets no chance to tidy up.
    void kill();
    // SIGTERM: it does.
    void terminate();

    std::string out;
    std::string err;

private:
    bool pump(int timeout_ms);  // false when both streams have ended

    pid_t pid_ = -1;
    int out_fd_ = -1;
    int err_fd_ = -1;
};
