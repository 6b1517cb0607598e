#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>

#include "lib/log.h"
#include "lib/str.h"

namespace {

/// An open file, closed at the end of the scope. Below 0: none.
class open_file {
public:
    open_file(str path, int flags) : fd(::open(path.c_str(), flags | O_CLOEXEC, 0666)) {}
    open_file(open_file const&) = delete;
    open_file& operator=(open_file const&) = delete;
    ~open_file() {
        if (fd >= 0)
            ::close(fd);
    }

    int const fd;
};

/// Puts "/" for every "\".
str system_path(str path) {
    for (int i = path.find(str::backslash); i >= 0 && i < path.length(); ++i) {
        if (path[i] == str::backslash[0])
            path.set_character(i, str::slash[0]);
    }
    return path;
}

void log_path(char const* format, str const& path) {
    if (log_check_condition(1))
        log_add_message(1, str::sprintf(format, arg_str(path)), str::null);
}

/// Reads to the end of a file that doesn't tell its size. Empty on failure.
str read_to_end(int fd) {
    constexpr int chunk_bytes = 2048;
    str content;
    unsigned char chunk[chunk_bytes];
    for (;;) {
        ssize_t const got = ::read(fd, chunk, sizeof(chunk));
        if (got < 0)
            return str();
        if (got == 0)
            return content;
        content.append(chunk, static_cast<int>(got));
    }
}

void make_directories(str const& path) {
    constexpr mode_t all_bits = 0xFFFF;  // the process's umask decides
    for (int i = 1; i < path.length(); ++i) {
        if (path[i] == str::slash[0]) {
            str directory = path.leftstr(i);
            ::mkdir(directory.c_str(), all_bits);
        }
    }
}

bool write_all(int fd, str const& content, str const& path) {
    constexpr int max_piece_bytes = 262144;
    // The number of the no-space error, looked for in what write() returns.
    constexpr ssize_t no_space = 28;
    for (int done = 0; done < content.length();) {
        str const piece = content.substr(done, max_piece_bytes);
        ssize_t const written = ::write(fd, piece.cbuffer(), static_cast<std::size_t>(piece.length()));
        if (written != piece.length()) {
            log_path(written == no_space ? "File system full while writing %s" : "Could not write %s", path);
            return false;
        }
        done += piece.length();
    }
    return true;
}

}  // namespace

str str::read_file(str const& path, bool quiet) {
    str const name = system_path(path);
    open_file const file(name, O_RDONLY);
    struct stat status;
    if (::fstat(file.fd, &status) != 0) {
        if (!quiet)
            log_path("Could not fstat %s", name);
        return str();
    }
    if (status.st_size == 0)
        return read_to_end(file.fd);
    if (status.st_size > INT_MAX)
        return str();
    str content(nullptr, static_cast<int>(status.st_size));
    ssize_t const got = ::read(file.fd, content.buffer(), static_cast<std::size_t>(content.length()));
    return got == content.length() ? content : str();
}

int str::file_size(str const& path) {
    open_file const file(system_path(path), O_RDONLY);
    struct stat status;
    bool const known = ::fstat(file.fd, &status) == 0 && status.st_size <= INT_MAX;
    return known ? static_cast<int>(status.st_size) : 0;
}

bool str::write_file(str const& content, str const& path) {
    str name = system_path(path);
    make_directories(name);
    open_file const file(name, O_WRONLY | O_CREAT | O_TRUNC);
    if (file.fd < 0) {
        log_path("Could not open %s for writing", name);
        return false;
    }
    if (write_all(file.fd, content, name))
        return true;
    ::unlink(name.c_str());
    return false;
}

str str::list_directory(str const& path, bool detailed) {
    str directory = system_path(path);
    if (directory.length() > 1 && directory.rightstr(1) == slash)
        directory = directory.leftstr(directory.length() - 1);
    str list;
    DIR* const stream = ::opendir(directory.c_str());
    if (!stream)
        return list;
    while (dirent const* const entry = ::readdir(stream)) {
        str const name(entry->d_name);
        if (name == dot || name == dot_dot)
            continue;
        list += name;
        if (detailed) {
            struct stat status;
            str full = directory + slash + name;
            bool const is_directory = ::lstat(full.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
            list += space + (is_directory ? c_dir : c_file);
        }
        list += newline;
    }
    ::closedir(stream);
    return list;
}

bool str::remove_file(str const& path, bool quiet) {
    str name = system_path(path);
    if (::unlink(name.c_str()) == 0)
        return true;
    if (!quiet)
        log_path("Cannot remove file %s", name);
    return false;
}

bool str::rename_file(str const& from, str const& to) {
    str old_name = system_path(from);
    str new_name = system_path(to);
    if (std::rename(old_name.c_str(), new_name.c_str()) == 0)
        return true;
    if (log_check_condition(1))
        log_add_message(1, sprintf("Cannot rename file %s to %s", arg_str(old_name), arg_str(new_name)), null);
    return false;
}

str str::lower_case(str const& text) {
    str lower = text;
    for (int i = 0; i < lower.length(); ++i) {
        if (lower[i] >= 'A' && lower[i] <= 'Z')
            lower.set_character(i, static_cast<unsigned char>(lower[i] + ('a' - 'A')));
    }
    return lower;
}
