// fxsline as a user runs it: a process with its output, standard error included. Killed with its owner.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

class running_program {
public:
    explicit running_program(std::vector<std::string> arguments) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        arguments.insert(arguments.begin(), FXSLINE_PROGRAM);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
        posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
        EXPECT_EQ(posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
    }
    running_program(const running_program&) = delete;
    ~running_program() {
        if (pid_ != 0) {
            end(SIGKILL);
        }
        fclose(output_);
    }

    // The next line of its output; empty at the end.
    std::string line() {
        char text[512];
        return fgets(text, sizeof text, output_) == nullptr ? "" : text;
    }

    // Exit status, or the signal that ended it, negated.
    int end(int signal_number) {
        kill(pid_, signal_number);
        return wait();
    }
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    pid_t pid_ = 0;
    FILE* output_ = nullptr;
};

inline std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
