#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/fxsline/device_io.h"
#include "tools/fxsline/driver_links.h"
#include "tools/fxsline/line_bank.h"

namespace fxsline {

enum class file_kind {
    device,      ///< sdtN, the line's audio device
    say,         ///< lineN.say: reads what the telephone says, a command written changes it
    stats,       ///< lineN.stats: state and counters, read only
    clock,       ///< clock: reads the ticks so far; a number written to a stepped clock lets so many pass
    led,         ///< led: the commands to the call LED so far and a drawing of them, read only
    driver_say,  ///< driver.say: what is written goes over the message pipe; only with such a pipe
    signal_say,  ///< signal.say: hexadecimal text written goes to the signalling device; only with such a device
};

struct mount_file {
    std::string name;
    file_kind kind;
    unsigned line;  ///< 0 where the kind has none
    unsigned mode;  ///< permission bits
    uint64_t inode;
};

/// The files of a mount and their inode numbers: a fixed table, made once from the number of lines. Inode 1 is the
/// directory itself, the files follow.
class mount_files {
public:
    static constexpr uint64_t directory_inode = 1;

    /// With `pipe` there is driver.say, with `signal` signal.say.
    mount_files(unsigned lines, bool pipe, bool signal);

    /// nullptr when there is no such file.
    mount_file const* find(std::string_view name) const;
    mount_file const* find(uint64_t inode) const;

    std::vector<mount_file> const& all() const { return files; }

private:
    void add(std::string name, file_kind kind, unsigned line, unsigned mode);

    std::vector<mount_file> files;
};

/// The most ticks that one write to the clock lets pass: an hour.
inline constexpr uint64_t max_step_ticks = 360000;

/// Answers FUSE requests for the mount's directory and files: device files through device_io, the control files
/// (lineN.say, lineN.stats, clock, led, driver.say, signal.say) here. Ticks pass here too, since each may answer
/// waiting requests. One thread at a time: line_mount holds its lock around every call and every request.
class file_server {
public:
    /// Neither `telephones` nor `driver` is owned; `driver` may be nullptr. With `can_step` the file "clock" can be
    /// written. No speech is loaded from below `directory` (absolute), where it is mounted: the program would wait for
    /// itself.
    file_server(line_bank& telephones, driver_links* driver, bool can_step, std::string directory);

    /// For fuse_session_new, whose user data is the file_server.
    static fuse_lowlevel_ops const& operations();

    /// Lets `ticks` ticks pass, each with the answers that it brings to waiting requests.
    void advance(uint64_t ticks);

    /// Every waiting request fails with ENODEV, every poller wakes.
    void abandon();

    /// Every open device has been read empty and its reader sleeps until there is more.
    bool settled();

    /// A write to the device of `line` waits for room.
    bool writer_waits(unsigned line) const { return devices[line].writer_waits(); }

private:
    friend struct operations_table;

    void lookup(fuse_req_t request, std::string_view name);
    void attributes(fuse_req_t request, uint64_t inode);
    void list(fuse_req_t request, size_t bytes, off_t offset);
    void open(fuse_req_t request, mount_file const& file, fuse_file_info& info);
    void release(mount_file const& file, fuse_file_info const& info);
    void read(fuse_req_t request, mount_file const& file, size_t bytes, off_t offset, fuse_file_info const& info);
    void write(fuse_req_t request, mount_file const& file, std::string_view bytes, fuse_file_info const& info);
    void poll(fuse_req_t request, mount_file const& file, fuse_file_info const& info, fuse_pollhandle* notify);
    void ioctl(fuse_req_t request, mount_file const& file, uint32_t number);

    std::string text_of(mount_file const& file);
    int say(unsigned line, std::string_view command);
    int step(std::string_view number);

    line_bank& bank;
    driver_links* links;  ///< may be nullptr: then no file needs it
    bool stepped;
    std::string mountpoint;
    mount_files files;
    std::deque<device_io> devices;              ///< one a line
    std::map<uint64_t, std::string> snapshots;  ///< what an open control file reads, by open file
    uint64_t next_open_file = 1;                ///< number of the next open file (FUSE's fh)
};

}  // namespace fxsline
