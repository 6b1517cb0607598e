#include "bench/process_usage.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

child_process::child_process(std::vector<std::string> const& command) {
    std::vector<char*> argv;
    for (std::string const& argument : command)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid = fork();
    if (pid != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execvp(argv[0], argv.data());
    _exit(127);
}

child_process::~child_process() {
    if (pid <= 0)
        return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

bool child_process::alive() const {
    siginfo_t info{};
    return pid > 0 && waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

double child_process::cpu_ms() const {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &used) != 0)
        return 0;
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) * 1e-6;
}

long child_process::status_kb(char const* row) const {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    std::string const wanted = std::string(row) + ":";
    std::string line;
    while (std::getline(file, line)) {
        if (line.starts_with(wanted))
            return std::atol(line.c_str() + wanted.size());
    }
    return -1;
}

long stripped_bytes(std::string const& program) {
    std::filesystem::path const copy =
        std::filesystem::temp_directory_path() / ("stripped-" + std::to_string(getpid()));
    std::string const command = "strip -o '" + copy.string() + "' '" + program + "'";
    if (std::system(command.c_str()) != 0)
        return 0;
    auto const size = static_cast<long>(std::filesystem::file_size(copy));
    std::filesystem::remove(copy);
    return size;
}
