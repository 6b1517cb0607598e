#include "tools/fxsline/line_mount.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "tools/fxsline/mount_point.h"

namespace fxsline {

namespace {

//// libfuse explains failures only in its log, one for all sessions: the last line of it.
std::string last_log_line;

void keep_log_line(fuse_log_level, char const* format, va_list arguments) {
    char line[256];
    std::vsnprintf(line, sizeof line, format, arguments);
    last_log_line = line;
    while (last_log_line.ends_with('\n'))
        last_log_line.pop_back();
}

fuse_session* new_session(mount_config const& config, file_server& files) {
    std::string name = "fxsline";
    std::string option = "-o";
    std::string options = "fsname=fxsline,subtype=fxsline";
    if (config.allow_other)
        options += ",allow_other";
    char* arguments[] = {name.data(), option.data(), options.data(), nullptr};
    fuse_args list{};
    list.argc = 3;
    list.argv = arguments;
    fuse_session* session = fuse_session_new(&list, &file_server::operations(), sizeof(fuse_lowlevel_ops), &files);
    fuse_opt_free_args(&list);
    return session;
}

}  // namespace

tick_clock::tick_clock() : timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    itimerspec period{};
    period.it_interval.tv_nsec = tick_ms * 1000000L;
    period.it_value = period.it_interval;
    timerfd_settime(timer, 0, &period, nullptr);
}

tick_clock::~tick_clock() {
    close(timer);
}

uint64_t tick_clock::due() {
    uint64_t ticks = 0;
    return read(timer, &ticks, sizeof ticks) == sizeof ticks ? ticks : 0;
}

mount_error line_mount::open(mount_config const& config) {
    failure = fuse_obstacle();
    if (!failure.empty())
        return mount_error::no_fuse;
    auto const directory = prepare_mount_point(config.mountpoint);
    if (!directory.value) {
        failure = directory.error;
        return mount_error::bad_mountpoint;
    }
    fuse_set_log_func(keep_log_line);
    files = std::make_unique<file_server>(bank, links, config.stepped, *directory.value);
    session = new_session(config, *files);
    if (session == nullptr || fuse_session_mount(session, directory.value->c_str()) != 0) {
        failure = "can't mount on " + *directory.value + ": " + last_log_line;
        if (session != nullptr) {
            fuse_session_destroy(session);
            session = nullptr;
        }
        return mount_error::no_fuse;
    }
    // A request may vanish between poll and read, when its process is killed: the read must not wait then.
    int const fd = fuse_session_fd(session);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    wake_fd = eventfd(0, EFD_CLOEXEC);
    return mount_error::none;
}

void line_mount::serve(tick_clock* clock, int stop_fd) {
    fuse_buf buffer{};
    pollfd waits[] = {{fuse_session_fd(session), POLLIN, 0},
                      {clock != nullptr ? clock->fd() : -1, POLLIN, 0},
                      {wake_fd, POLLIN, 0},
                      {stop_fd, POLLIN, 0},
                      {links != nullptr ? links->signal_fd() : -1, POLLIN, 0}};
    auto const& [requests, ticks, woken, stopped, signal] = waits;
    while (poll(waits, std::size(waits), -1) >= 0 || errno == EINTR) {
        if ((woken.revents | stopped.revents) != 0)
            break;
        if (ticks.revents != 0)
            advance(clock->due());
        if (signal.revents != 0)
            receive_signal();
        if (requests.revents != 0 && !serve_request(buffer))
            break;
    }
    std::free(buffer.mem);
}

bool line_mount::serve_request(fuse_buf& buffer) {
    int const result = fuse_session_receive_buf(session, &buffer);
    if (result > 0) {
        {
            std::lock_guard const guard(mutex);
            fuse_session_process_buf(session, &buffer);
        }
        served.notify_all();
    }
    bool const connected = result > 0 || result == -EAGAIN || result == -EINTR;
    return connected && fuse_session_exited(session) == 0;
}

void line_mount::receive_signal() {
    {
        std::lock_guard const guard(mutex);
        links->receive_signal();
    }
    served.notify_all();
}

void line_mount::start(tick_clock* clock) {
    thread = std::thread([this, clock] { serve(clock, -1); });
}

void line_mount::stop() {
    if (session == nullptr)
        return;
    if (thread.joinable()) {
        eventfd_write(wake_fd, 1);
        thread.join();
    }
    files->abandon();
    fuse_session_unmount(session);
    fuse_session_destroy(session);
    close(wake_fd);
    session = nullptr;
}

void line_mount::advance(uint64_t ticks) {
    std::lock_guard const guard(mutex);
    files->advance(ticks);
}

bool line_mount::wait_until(std::function<bool()> const& condition, std::chrono::milliseconds limit) {
    std::unique_lock guard(mutex);
    return served.wait_for(guard, limit, condition);
}

bool line_mount::settle(std::chrono::milliseconds limit) {
    return wait_until([this] { return files->settled(); }, limit);
}

bool line_mount::wait_for_writer(unsigned line, std::chrono::milliseconds limit) {
    return wait_until([this, line] { return files->writer_waits(line); }, limit);
}

}  // namespace fxsline
