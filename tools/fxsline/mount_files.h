// The files of a mount and their inode numbers: a fixed table, made once from the number of lines. Inode 1 is the
// directory itself, the files follow.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fxsline {

enum class file_kind {
    device,  // sdtN, the line's audio device
    say,     // lineN.say: reads what the telephone says, a command written changes it
    stats,   // lineN.stats: state and counters, read only
    clock,   // clock: reads the ticks so far; a number written to a stepped clock lets so many pass
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

    explicit mount_files(unsigned lines);

    // nullptr when there is no such file.
    const mount_file* find(std::string_view name) const;
    const mount_file* find(uint64_t inode) const;

    const std::vector<mount_file>& all() const { return files_; }

private:
    void add(std::string name, file_kind kind, unsigned line, unsigned mode);

    std::vector<mount_file> files_;
};

}  // namespace fxsline
