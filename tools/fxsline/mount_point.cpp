#include "tools/fxsline/mount_point.h"

#include <mntent.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

namespace fxsline {

namespace {

namespace fs = std::filesystem;

constexpr char const* fuse_device = "/dev/fuse";

bool mounted_by_us(std::string const& directory) {
    std::unique_ptr<FILE, int (*)(FILE*)> const table(setmntent("/proc/self/mounts", "re"), endmntent);
    if (!table)
        return false;
    while (mntent const* entry = getmntent(table.get()))
        if (directory == entry->mnt_dir && std::strcmp(entry->mnt_type, mount_type) == 0)
            return true;
    return false;
}

/// Detaches the topmost mount on `directory`: by ourselves as root, else with fusermount3.
bool detach(std::string const& directory) {
    if (umount2(directory.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) == 0)
        return true;
    std::string program = "fusermount3";
    std::string options = "-uzq";
    std::string target = directory;
    char* arguments[] = {program.data(), options.data(), target.data(), nullptr};
    pid_t child = 0;
    int status = 0;
    return posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ) == 0 &&
           waitpid(child, &status, 0) == child && status == 0;
}

/// The absolute path without a look at the directory itself, which may be a dead mount.
std::string absolute_path(std::string const& directory) {
    fs::path path = fs::absolute(directory).lexically_normal();
    if (!path.has_filename())
        path = path.parent_path();  // "dir/"
    std::error_code ignored;
    fs::path const parent = fs::canonical(path.parent_path(), ignored);
    return parent.empty() ? path.string() : (parent / path.filename()).string();
}

}  // namespace

outcome<std::string> prepare_mount_point(std::string const& directory) {
    std::string const path = absolute_path(directory);
    struct statfs ignored {};  // always asks the file system, where stat may answer from the kernel's cache
    while (statfs(path.c_str(), &ignored) != 0 && errno == ENOTCONN) {
        if (!detach(path)) {
            return outcome<std::string>::failed("can't remove the dead mount on " + path + " (try: fusermount3 -u -z " +
                                                path + ")");
        }
    }
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return outcome<std::string>::failed("can't mount on " + path + ": " + std::strerror(errno));
    if (!S_ISDIR(status.st_mode))
        return outcome<std::string>::failed("can't mount on " + path + ": it is no directory");
    if (mounted_by_us(path))
        return outcome<std::string>::failed("another fxsline serves " + path);
    return {path, {}};
}

std::string fuse_obstacle() {
    if (access(fuse_device, F_OK) != 0)
        return "there is no /dev/fuse: the kernel lacks FUSE, or 'modprobe fuse' is needed";
    if (access(fuse_device, R_OK | W_OK) != 0)
        return "no permission to use /dev/fuse: as root, 'chmod 666 /dev/fuse' lets every user (fusermount3 then "
               "mounts for "
               "them), or run fxsline as root";
    if (geteuid() != 0 && std::system("command -v fusermount3 >/dev/null") != 0)
        return "fusermount3, which mounts for users, is not installed (Debian's package fuse3); or run as root";
    return {};
}

}  // namespace fxsline
