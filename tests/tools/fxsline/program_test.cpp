// The program as a user runs it: options, events on standard output, recordings, exit status, a dead mount.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/tools/fxsline/temporary_directory.h"

namespace {

using json = nlohmann::json;

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

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Program, RecordsBothWaysOnOneTimeAxisAndReportsEvents) {
    const temporary_directory directory;
    const std::string mountpoint = directory.path("lines");
    std::filesystem::create_directory(mountpoint);
    running_program program({mountpoint, "--stepped", "--json", "--tone", "1=1000,-6", "--delay", "1=20",
                             "--hear", "1=" + directory.path("heard"), "--said",
                             "1=" + directory.path("said"), "--answer", "9=5"});
    EXPECT_EQ(json::parse(program.line()),
              (json{{"time_ms", 0}, {"event", "serving"}, {"mountpoint", mountpoint}, {"lines", 4}}));
    std::ofstream(mountpoint + "/clock") << "1\n";
    const int device = open((mountpoint + "/sdt1").c_str(), O_RDWR | O_CLOEXEC);
    for (int tick = 0; tick < 5; tick++) {
        std::ofstream(mountpoint + "/clock") << "1\n";
        char block[160];
        EXPECT_EQ(read(device, block, sizeof block), 160);
        EXPECT_EQ(write(device, block, sizeof block), 160);
    }
    close(device);
    EXPECT_EQ(json::parse(program.line()), (json{{"time_ms", 10}, {"line", 1}, {"event", "device_opened"}}));
    EXPECT_EQ(json::parse(program.line()), (json{{"time_ms", 60}, {"line", 1}, {"event", "device_closed"}}));
    std::ofstream(mountpoint + "/clock") << "2\n";
    EXPECT_EQ(program.end(SIGTERM), 0);
    const json totals = json::parse(program.line());
    EXPECT_EQ(totals["blocks_read"], 5);
    EXPECT_EQ(totals["blocks_written"], 5);
    EXPECT_TRUE(std::filesystem::is_empty(mountpoint));
    const std::string said = contents(directory.path("said")).substr(44);
    const std::string heard = contents(directory.path("heard")).substr(44);
    ASSERT_EQ(said.size(), 8 * 160U);
    ASSERT_EQ(heard.size(), 8 * 160U);
    EXPECT_EQ(said.substr(0, 3 * 160), std::string(3 * 160, '\0'));
    EXPECT_NE(said.substr(3 * 160, 160), std::string(160, '\0'));
    EXPECT_TRUE(heard.substr(160, 6 * 160) == said.substr(0, 6 * 160));
    EXPECT_EQ(heard.substr(7 * 160), std::string(160, '\0'));
}

TEST(Program, TakesOverTheMountOfAKilledRunButNotOfALivingOne) {
    const temporary_directory directory;
    running_program killed({directory.path("")});
    EXPECT_TRUE(killed.line().starts_with("serving "));
    EXPECT_EQ(running_program({directory.path("")}).wait(), 3);
    killed.end(SIGKILL);
    std::error_code error;
    EXPECT_FALSE(std::filesystem::exists(directory.path("sdt0"), error));
    ASSERT_EQ(error.value(), ENOTCONN);
    running_program next({directory.path("")});
    EXPECT_TRUE(next.line().starts_with("serving "));
    EXPECT_TRUE(std::filesystem::exists(directory.path("sdt0")));
    EXPECT_EQ(next.end(SIGINT), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path("")));
}

TEST(Program, SaysWhyItCanNotRun) {
    const temporary_directory directory;
    struct {
        std::vector<std::string> arguments;
        int status;
        const char* text;
    } const cases[] = {
        {{}, 1, "MOUNTPOINT is required"},
        {{"x", "--tone", "4=440,-20"}, 1, "N from 0 to 3"},
        {{"x", "--tone", "0=440"}, 1, "frequency and level"},
        {{"x", "--say", "0=/nonexistent"}, 1, "can't open the file /nonexistent"},
        {{"x", "--loop", "2"}, 1, "--loop 2 needs --say 2"},
        {{"x", "--backlog", "0"}, 1, "--backlog"},
        {{"x", "--delay", "0=-5"}, 1, "'-5' is not a number"},
        {{"/nonexistent"}, 3, "can't mount on /nonexistent"},
        {{FXSLINE_PROGRAM}, 3, "no directory"},
        {{directory.path(""), "--hear", "0=/nonexistent/heard.wav"}, 4, "can't write /nonexistent"}};
    for (const auto& c : cases) {
        running_program program(c.arguments);
        EXPECT_NE(program.line().find(c.text), std::string::npos) << c.text;
        EXPECT_EQ(program.wait(), c.status) << c.text;
    }
}

}  // namespace
