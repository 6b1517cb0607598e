#include "tools/fxsline/mount_files.h"

#include <algorithm>
#include <utility>

namespace fxsline {

mount_files::mount_files(unsigned lines, bool pipe, bool signal) {
    for (unsigned line = 0; line < lines; line++) {
        std::string const digit = std::to_string(line);
        add("sdt" + digit, file_kind::device, line, 0666);
        add("line" + digit + ".say", file_kind::say, line, 0666);
        add("line" + digit + ".stats", file_kind::stats, line, 0444);
    }
    add("clock", file_kind::clock, 0, 0666);
    add("led", file_kind::led, 0, 0444);
    if (pipe)
        add("driver.say", file_kind::driver_say, 0, 0222);
    if (signal)
        add("signal.say", file_kind::signal_say, 0, 0222);
}

mount_file const* mount_files::find(std::string_view name) const {
    auto const found = std::ranges::find(files, name, &mount_file::name);
    return found == files.end() ? nullptr : &*found;
}

mount_file const* mount_files::find(uint64_t inode) const {
    uint64_t const index = inode - directory_inode - 1;  // wraps for the directory and for 0
    return index < files.size() ? &files[index] : nullptr;
}

void mount_files::add(std::string name, file_kind kind, unsigned line, unsigned mode) {
    uint64_t const inode = directory_inode + 1 + files.size();
    files.push_back({std::move(name), kind, line, mode, inode});
}

}  // namespace fxsline
