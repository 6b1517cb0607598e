#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// A child process and what it uses of the machine. Killed with its owner, and when this program
/// dies.
class child_process {
public:
    /// The program with its arguments; its standard output and error are this program's.
    explicit child_process(std::vector<std::string> const& command);
    ~child_process();
    child_process(child_process const&) = delete;
    child_process& operator=(child_process const&) = delete;

    bool alive() const;
    /// CPU time so far in user and kernel mode, ms, with the resolution of the scheduler's clock (ns).
    double cpu_ms() const;
    /// A row of /proc/PID/status, kB: VmRSS (resident), RssAnon (of it: not backed by files). -1 when there is none.
    long status_kb(char const* row) const;

private:
    pid_t pid;
};

/// Bytes of the program without symbols; 0 when strip fails.
long stripped_bytes(std::string const& program);
