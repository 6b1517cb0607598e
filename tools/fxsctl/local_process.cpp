#include "tools/fxsctl/local_process.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "lib/protocol.h"

namespace fxsctl {
namespace {

namespace fs = std::filesystem;

constexpr char const* program_name = "fxsmedia";

/// Empty when it cannot be read; its process may end meanwhile.
std::string content(std::string const& path) {
    std::ifstream const file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// Names in a folder; those found so far when it vanishes.
std::vector<std::string> names_in(std::string const& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator(); at.increment(error))
        names.push_back(at->path().filename());
    return names;
}

std::vector<std::string> split_at_zeros(std::string const& text) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = std::min(text.find('\0', at), text.size());
        parts.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

std::vector<pid_t> all_pids() {
    std::vector<pid_t> pids;
    for (std::string const& name : names_in("/proc")) {
        pid_t pid = 0;
        auto const [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (error == std::errc() && end == name.data() + name.size())
            pids.push_back(pid);
    }
    return pids;
}

std::string link_target(std::string const& path) {
    std::error_code ignored;
    return fs::read_symlink(path, ignored).string();
}

/// Descriptors of a process with what they lead to.
std::vector<std::pair<int, std::string>> descriptors(pid_t pid) {
    std::vector<std::pair<int, std::string>> found;
    std::string const folder = "/proc/" + std::to_string(pid) + "/fd/";
    for (std::string const& name : names_in(folder))
        found.emplace_back(std::atoi(name.c_str()), link_target(folder + name));
    return found;
}

bool owns_socket(pid_t pid, std::uint64_t inode) {
    std::string const wanted = "socket:[" + std::to_string(inode) + "]";
    return std::ranges::any_of(descriptors(pid), [&](auto const& one) { return one.second == wanted; });
}

void read_sockets(char const* table, bool ipv6, std::vector<udp_socket>& sockets) {
    std::istringstream rows(content(table));
    std::string row;
    for (std::getline(rows, row); std::getline(rows, row);) {
        std::istringstream cells(row);
        std::vector<std::string> cell{std::istream_iterator<std::string>(cells), {}};
        if (cell.size() < 13)
            continue;
        auto const hex = [](std::string const& text, char mark) {
            return std::strtoull(text.c_str() + text.find(mark) + 1, nullptr, 16);
        };
        sockets.push_back({static_cast<std::uint16_t>(hex(cell[1], ':')), ipv6,
                           std::strtoull(cell[9].c_str(), nullptr, 10), hex(cell[4], ':'),
                           std::strtoull(cell.back().c_str(), nullptr, 10)});
    }
}

std::string error_text(int error) {
    return error == ENOTCONN ? "its driver has gone" : std::strerror(error);
}

}  // namespace

std::vector<udp_socket> udp_sockets() {
    std::vector<udp_socket> sockets;
    read_sockets("/proc/net/udp", false, sockets);
    read_sockets("/proc/net/udp6", true, sockets);
    return sockets;
}

std::string socket_owner(std::uint64_t inode) {
    for (pid_t const pid : all_pids()) {
        if (!owns_socket(pid, inode))
            continue;
        std::string name = content("/proc/" + std::to_string(pid) + "/comm");
        name.resize(std::min(name.find('\n'), name.size()));
        return name + " (" + std::to_string(pid) + ")";
    }
    return {};
}

local_process::local_process(pid_t pid) : id(pid), arguments(split_at_zeros(content(folder() + "cmdline"))) {}

std::optional<local_process> local_process::behind(std::uint16_t control_port) {
    std::vector<udp_socket> const sockets = udp_sockets();
    for (pid_t const pid : all_pids()) {
        if (!content("/proc/" + std::to_string(pid) + "/comm").starts_with(program_name))
            continue;
        for (udp_socket const& one : sockets)
            if (one.local_port == control_port && owns_socket(pid, one.inode))
                return local_process(pid);
    }
    return std::nullopt;
}

std::vector<pid_t> local_process::locked_out(std::uint16_t control_port) {
    auto const owner = behind(control_port);
    std::vector<pid_t> found;
    for (pid_t const pid : all_pids()) {
        if (owner && owner->pid() == pid)
            continue;
        local_process const candidate(pid);
        bool const ours = content("/proc/" + std::to_string(pid) + "/comm").starts_with(program_name);
        if (ours && candidate.option("--port", "") == std::to_string(control_port) && !descriptors(pid).empty() &&
            std::ranges::none_of(udp_sockets(), [&](udp_socket const& one) {
                return one.local_port == control_port && owns_socket(pid, one.inode);
            }))
            found.push_back(pid);
    }
    return found;
}

char local_process::state() const {
    std::string const text = content(folder() + "stat");
    std::size_t const name_end = text.rfind(')');
    return name_end != text.npos && name_end + 2 < text.size() ? text[name_end + 2] : '?';
}

std::string local_process::option(std::string const& name, std::string const& fallback) const {
    std::string value = fallback;
    for (std::size_t i = 1; i + 1 < arguments.size(); i++)
        value = arguments[i] == name ? arguments[i + 1] : value;
    return value;
}

bool local_process::last_of_family(std::string const& name) const {
    auto const last = std::find_if(arguments.rbegin(), arguments.rend(),
                                   [](std::string const& a) { return a == "--ipv4" || a == "--ipv6"; });
    return last != arguments.rend() && *last == name;
}

std::string local_process::line_path(unsigned line) const {
    return option("--tdm", "/dev/sdt") + std::to_string(line);
}

std::string local_process::reachable(std::string const& path) const {
    return path.starts_with('/') ? folder() + "root" + path : folder() + "cwd/" + path;
}

std::optional<int> local_process::descriptor(std::string const& path) const {
    std::error_code ignored;
    std::string const absolute = path.starts_with('/') ? path : link_target(folder() + "cwd") + "/" + path;
    fs::path const parent = fs::weakly_canonical(fs::path(absolute).parent_path(), ignored);
    std::string const canonical = (parent / fs::path(absolute).filename()).string();
    struct stat wanted {};
    bool const exists = stat(reachable(path).c_str(), &wanted) == 0;
    for (auto const& [number, target] : descriptors(id)) {
        struct stat status {};
        bool const same = exists && stat((folder() + "fd/" + std::to_string(number)).c_str(), &status) == 0 &&
                          status.st_dev == wanted.st_dev && status.st_ino == wanted.st_ino;
        // Of a mount that was taken away the kernel knows the path below its root only.
        bool const detached = !exists && target == "/" + fs::path(absolute).filename().string();
        if (same || detached || target == canonical || target == canonical + " (deleted)")
            return number;
    }
    return std::nullopt;
}

std::uint64_t local_process::position(int descriptor) const {
    std::istringstream text(content(folder() + "fdinfo/" + std::to_string(descriptor)));
    std::string name;
    std::uint64_t value = 0;
    return text >> name >> value && name == "pos:" ? value : 0;
}

std::vector<unsigned> local_process::open_lines() const {
    std::vector<unsigned> lines;
    for (unsigned line = 0; line < protocol::slot_count; line++)
        if (descriptor(line_path(line)))
            lines.push_back(line);
    return lines;
}

std::string local_process::line_trouble(unsigned line) const {
    std::string const path = line_path(line);
    std::string const name = "the device of line " + std::to_string(line) + ", " + path + ", ";
    struct stat status {};
    if (stat(reachable(path).c_str(), &status) != 0)
        return name + "cannot be used: " + error_text(errno);
    if (descriptor(path))
        return {};
    return name + "is there, but the process could not open it for reading and writing (mode, owner, or busy)";
}

}  // namespace fxsctl
