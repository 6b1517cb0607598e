// The files of a mount and their inode numbers: a fixed table, made once from the number of lines. Inode 1 is the
// directory itself, the files follow.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fxsline {

enum class file_kind {
    device,      // sdtN, the line's audio device
    say,         // lineN.say: reads what the telephone says, a command written changes it
    stats,       // lineN.stats: state and counters, read only
    clock,       // clock: reads the ticks so far; a number written to a stepped clock lets so many pass
    led,         // led: the commands to the call LED so far and a drawing of them, read only
    driver_say,  // driver.say: what is written goes over the message pipe; only with such a pipe
    signal_say,  // signal.say: hexadecimal text written goes to the signalling device; only with such a device
};

struct mount_file {
    std::string name;
    file_kind kind;
    unsigned line;  // 0 where the kind has none
    unsigned mode;  // permission bits
    uint64_t inode;
};

class mount_files {
public:
    static constexpr uint64_t directory_inode = 1;

    // With `pipe` there is driver.say, with `signal` signal.say.
    mount_files(unsigned lines, bool pipe, bool signal);

    // nullptr when there is no such file.
    mount_file const* find(std::string_view name) const;
    mount_file const* find(uint64_t inode) const;

    std::vector<mount_file> const& all() const { return files; }

private:
    void add(std::string name, file_kind kind, unsigned line, unsigned mode);

    std::vector<mount_file> files;
};

}  // namespace fxsline
