#include "tools/fxsline/file_server.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace fxsline {

namespace {

constexpr double forever_s = 1e6;  ///< names and attributes never change

struct stat status_of(uint64_t inode, mode_t mode) {
    struct stat status {};
    status.st_ino = inode;
    status.st_mode = mode;
    status.st_nlink = S_ISDIR(mode) ? 2 : 1;
    status.st_uid = getuid();
    status.st_gid = getgid();
    return status;
}

struct stat status_of(mount_file const& file) {
    return status_of(file.inode, S_IFREG | file.mode);
}

}  // namespace

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

file_server::file_server(line_bank& telephones, driver_links* driver, bool can_step, std::string directory)
    : bank(telephones),
      links(driver),
      stepped(can_step),
      mountpoint(std::move(directory)),
      files(bank.lines(), links != nullptr && links->has_pipe(), links != nullptr && links->has_signal()) {
    for (unsigned line = 0; line < bank.lines(); line++)
        devices.emplace_back(bank.line(line));
}

void file_server::advance(uint64_t ticks) {
    for (; ticks > 0; ticks--) {
        bank.tick();
        if (links != nullptr)
            links->tick();
        for (device_io& device : devices)
            device.serve_waiting();
    }
}

void file_server::abandon() {
    for (device_io& device : devices)
        device.abandon();
}

bool file_server::settled() {
    for (unsigned line = 0; line < bank.lines(); line++)
        if (bank.line(line).is_open() && (bank.line(line).readable() || !devices[line].reader_sleeps()))
            return false;
    return true;
}

void file_server::lookup(fuse_req_t request, std::string_view name) {
    mount_file const* file = files.find(name);
    if (file == nullptr) {
        fuse_reply_err(request, ENOENT);
        return;
    }
    fuse_entry_param entry{};
    entry.ino = file->inode;
    entry.attr = status_of(*file);
    entry.attr_timeout = forever_s;
    entry.entry_timeout = forever_s;
    fuse_reply_entry(request, &entry);
}

void file_server::attributes(fuse_req_t request, uint64_t inode) {
    mount_file const* file = files.find(inode);
    struct stat const status = file != nullptr ? status_of(*file) : status_of(inode, S_IFDIR | 0755);
    fuse_reply_attr(request, &status, forever_s);
}

void file_server::list(fuse_req_t request, size_t bytes, off_t offset) {
    std::vector<char> page(bytes);
    size_t used = 0;
    for (size_t i = static_cast<size_t>(offset); i < files.all().size(); i++) {
        mount_file const& file = files.all()[i];
        struct stat const status = status_of(file);
        size_t const length = fuse_add_direntry(request, page.data() + used, bytes - used, file.name.c_str(), &status,
                                                static_cast<off_t>(i + 1));
        if (length > bytes - used)
            break;
        used += length;
    }
    fuse_reply_buf(request, page.data(), used);
}

void file_server::open(fuse_req_t request, mount_file const& file, fuse_file_info& info) {
    info.fh = next_open_file++;
    info.direct_io = 1;
    info.nonseekable = file.kind == file_kind::device;
    if (file.kind == file_kind::device)
        bank.open_device(file.line);
    bool const opener_is_gone = fuse_reply_open(request, &info) == -ENOENT;
    if (opener_is_gone)  // then no release will come
        release(file, info);
}

void file_server::release(mount_file const& file, fuse_file_info const& info) {
    snapshots.erase(info.fh);
    if (file.kind == file_kind::device) {
        devices[file.line].closed(info.fh);
        bank.close_device(file.line);
    }
}

void file_server::read(fuse_req_t request, mount_file const& file, size_t bytes, off_t offset,
                       fuse_file_info const& info) {
    if (file.kind == file_kind::device) {
        devices[file.line].read(request, bytes, (info.flags & O_NONBLOCK) != 0);
        return;
    }
    std::string& text = snapshots[info.fh];
    if (offset == 0)
        text = text_of(file);
    std::string_view const rest = std::string_view(text).substr(std::min(text.size(), static_cast<size_t>(offset)));
    fuse_reply_buf(request, rest.data(), std::min(rest.size(), bytes));
}

void file_server::write(fuse_req_t request, mount_file const& file, std::string_view bytes,
                        fuse_file_info const& info) {
    int error = EACCES;
    switch (file.kind) {
        case file_kind::device: devices[file.line].write(request, bytes, (info.flags & O_NONBLOCK) != 0); return;
        case file_kind::say: error = say(file.line, bytes); break;
        case file_kind::clock: error = step(bytes); break;
        case file_kind::driver_say: error = links->say(bytes); break;
        case file_kind::signal_say: error = links->signal(bytes); break;
        case file_kind::stats:
        case file_kind::led: break;
    }
    if (error == 0)
        fuse_reply_write(request, bytes.size());
    else
        fuse_reply_err(request, error);
}

void file_server::poll(fuse_req_t request, mount_file const& file, fuse_file_info const& info,
                       fuse_pollhandle* notify) {
    if (file.kind == file_kind::device) {
        devices[file.line].poll(request, info.fh, info.poll_events, notify);
        return;
    }
    if (notify != nullptr)
        fuse_pollhandle_destroy(notify);
    fuse_reply_poll(request, POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM);
}

void file_server::ioctl(fuse_req_t request, mount_file const& file, uint32_t number) {
    int const result = file.kind == file_kind::device ? bank.request(file.line, number) : -ENOTTY;
    if (result < 0)
        fuse_reply_err(request, -result);
    else
        fuse_reply_ioctl(request, result, nullptr, 0);
    if (number == request_tx_clear && result == 0)
        devices[file.line].serve_waiting();
}

std::string file_server::text_of(mount_file const& file) {
    switch (file.kind) {
        case file_kind::device:
        case file_kind::driver_say:
        case file_kind::signal_say: break;
        case file_kind::led: return bank.led_text();
        case file_kind::say: return bank.line(file.line).says().describe() + "\n";
        case file_kind::stats: return bank.stats(file.line);
        case file_kind::clock: return std::to_string(bank.ticks()) + "\n";
    }
    return {};
}

int file_server::say(unsigned line, std::string_view command) {
    size_t const space = std::min(command.find(' '), command.size());
    std::filesystem::path const path(command.substr(std::min(space + 1, command.size())));
    std::error_code unknown_directory;
    std::string const target = std::filesystem::absolute(path, unknown_directory).lexically_normal().string();
    if (target.starts_with(mountpoint + "/")) {
        bank.refuse_to_say(line, target + " lies in this mount");
        return EINVAL;
    }
    return bank.say(line, command) ? 0 : EINVAL;
}

int file_server::step(std::string_view number) {
    if (!stepped)
        return EPERM;
    if (number.ends_with('\n'))
        number.remove_suffix(1);
    uint64_t ticks = 0;
    auto const [end, error] = std::from_chars(number.data(), number.data() + number.size(), ticks);
    if (error != std::errc() || end != number.data() + number.size() || ticks > max_step_ticks)
        return EINVAL;
    advance(ticks);
    return 0;
}

}  // namespace fxsline
