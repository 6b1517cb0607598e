// The mount's directory and files, as answers to FUSE requests: device files through device_io, the control files
// (lineN.say, lineN.stats, clock, led, driver.say, signal.say) here. It also lets the time pass, since every tick may answer waiting requests.
// One thread at a time: line_mount holds its lock around every call and around the processing of every request.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>

#include "tools/fxsline/device_io.h"
#include "tools/fxsline/driver_links.h"
#include "tools/fxsline/fuse_api.h"
#include "tools/fxsline/line_bank.h"
#include "tools/fxsline/mount_files.h"

namespace fxsline {

// What a single write to the clock may let pass: an hour.
inline constexpr uint64_t max_step_ticks = 360000;

class file_server {
public:
    // Neither `bank` nor `links` is owned; `links` may be nullptr. With `stepped` the file "clock" can be written. `mountpoint` (absolute) is where no speech may be loaded from:
    // this program would wait for itself.
    file_server(line_bank& telephones, driver_links* driver, bool can_step, std::string directory);

    // For fuse_session_new, whose user data is the file_server.
    static fuse_lowlevel_ops const& operations();

    // Lets `ticks` ticks pass, each with all that it brings to waiting requests.
    void advance(uint64_t ticks);

    // Every waiting request fails with ENODEV, every poller wakes.
    void abandon();

    // Every open device has been read empty and its reader sleeps until there is more.
    bool settled();

    // A write to the device of `line` waits for room.
    bool writer_waits(unsigned line) const { return devices[line].writer_waits(); }

private:
    friend struct operations_table;

    void lookup(fuse_req_t request, std::string_view name);
    void attributes(fuse_req_t request, uint64_t inode);
    void list(fuse_req_t request, size_t bytes, off_t offset);
    void open(fuse_req_t request, mount_file const& file, fuse_file_info& info);
    void release(mount_file const& file, fuse_file_info const& info);
    void read(fuse_req_t request, mount_file const& file, size_t bytes, off_t offset,
              fuse_file_info const& info);
    void write(fuse_req_t request, mount_file const& file, std::string_view bytes,
               fuse_file_info const& info);
    void poll(fuse_req_t request, mount_file const& file, fuse_file_info const& info,
              fuse_pollhandle* notify);
    void ioctl(fuse_req_t request, mount_file const& file, uint32_t number);

    std::string text_of(mount_file const& file);
    int say(unsigned line, std::string_view command);
    int step(std::string_view number);

    line_bank& bank;
    driver_links* links;  // may be nullptr: then no file needs it
    bool stepped;
    std::string mountpoint;
    mount_files files;
    std::deque<device_io> devices;              // one a line
    std::map<uint64_t, std::string> snapshots;  // what an open control file reads, by open file
    uint64_t next_open_file = 1;                // number of the next open file (FUSE's fh)
};

}  // namespace fxsline
