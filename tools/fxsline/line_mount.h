#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tools/fxsline/file_server.h"
#include "tools/fxsline/line_bank.h"

struct fuse_session;

namespace fxsline {

/// The real 10 ms clock: counts whole periods of the monotonic clock since it was made. A late reader loses no tick.
class tick_clock {
public:
    tick_clock();  ///< the first tick is 10 ms away
    tick_clock(tick_clock const&) = delete;
    ~tick_clock();

    /// Readable (for poll) when a tick is due.
    int fd() const { return timer; }

    /// The ticks that fell due since the last call, 0 if none. Never waits.
    uint64_t due();

private:
    int timer;
};

struct mount_config {
    std::string mountpoint;    ///< an existing directory
    bool stepped = true;       ///< the file "clock" in the mount lets time pass when written to
    bool allow_other = false;  ///< other users may use the files
};

enum class mount_error { none, no_fuse, bad_mountpoint };

/// A bank of telephone lines as files in a mounted directory: the FUSE session, the loop that serves it, and the lock
/// that lets other threads move the time and look at the lines meanwhile.
///
/// A program calls open() and serve(). A test calls open() and start(), which serves in a thread of its own, steps
/// the clock with advance(), and waits for what the process under test does with wait_until() or settle(). Let
/// another process use the files wherever possible: when a program that uses its own mount crashes, the kernel waits
/// for answers that never come, and keeps the program until umount -f.
class line_mount {
public:
    /// Bank and links (nullptr: none) stay the caller's and must outlive the mount.
    explicit line_mount(line_bank& telephones, driver_links* driver = nullptr) : bank(telephones), links(driver) {}
    line_mount(line_mount const&) = delete;
    ~line_mount() { stop(); }

    /// Mounts. On failure error() says why in a sentence.
    mount_error open(mount_config const& config);
    std::string const& error() const { return failure; }

    /// Answers requests, reports what comes over the links, and lets time pass with `clock` if there is one, until
    /// `stop_fd` is readable (-1: no such descriptor), stop() is called or the directory is unmounted from outside.
    void serve(tick_clock* clock, int stop_fd);

    /// serve() in a thread of this program; `clock`, if there is one, must outlive the mount.
    void start(tick_clock* clock = nullptr);

    /// Ends the thread, answers every waiting request with ENODEV, unmounts. Nothing if not mounted.
    void stop();

    /// Lets `ticks` ticks of 10 ms pass: when it returns, requests that they allow to answer are answered.
    void advance(uint64_t ticks = 1);

    /// Calls `function` while no request is served and no time passes.
    template <class F>
    auto locked(F function) {
        std::lock_guard const guard(mutex);
        return function();
    }

    /// Waits until `condition` holds, which is checked after every request and signal, locked. False when `limit`
    /// passed first.
    bool wait_until(std::function<bool()> const& condition, std::chrono::milliseconds limit = patience);

    /// Waits until every open device has been read empty and its reader sleeps in select, poll or read until there is
    /// more: the processes under test have done what the last tick gave them to do with audio.
    bool settle(std::chrono::milliseconds limit = patience);

    /// Waits until a write to the device of `line` waits for room.
    bool wait_for_writer(unsigned line, std::chrono::milliseconds limit = patience);

    /// Far beyond what a busy machine needs: a limit that is reached is a failure.
    static constexpr std::chrono::milliseconds patience{20000};

private:
    /// Answers one request, if there is one. False when the session is over.
    bool serve_request(fuse_buf& buffer);

    void receive_signal();

    line_bank& bank;
    driver_links* links;
    std::unique_ptr<file_server> files;
    fuse_session* session = nullptr;
    int wake_fd = -1;  ///< readable: end the loop
    std::string failure;
    std::mutex mutex;  ///< guards bank, links, files and all libfuse's answers
    std::condition_variable served;
    std::thread thread;
};

}  // namespace fxsline
