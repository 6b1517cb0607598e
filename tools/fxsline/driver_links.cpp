#include "tools/fxsline/driver_links.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "tools/protocol/bytes.h"

namespace fxsline {

namespace {

bool is_pipe(std::string const& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

constexpr size_t most_bytes = 1024;  ///< of one receive()

/// Without line editing and echo from the first byte on, also before the process sets its own attributes.
void make_raw(int fd) {
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
}

bool leads_to_terminal(std::string const& link) {
    std::error_code error;
    return std::filesystem::read_symlink(link, error).string().starts_with("/dev/pts/");
}

}  // namespace

driver_pipe::~driver_pipe() {
    for (std::string const& path : paths)
        unlink(path.c_str());
    if (fd >= 0)
        close(fd);
}

std::string driver_pipe::create(std::string const& base) {
    for (char const* digit : {"0", "1"}) {
        std::string const path = base + digit;
        if (mkfifo(path.c_str(), 0666) != 0 && !is_pipe(path))
            return "can't create the pipe " + path + ": " + std::strerror(errno);
        paths.push_back(path);
    }
    // For reading, too: opening for writing alone fails while there is no reader, and the text would be lost with it.
    fd = open(paths.front().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    return fd >= 0 ? "" : "can't open the pipe " + paths.front() + ": " + std::strerror(errno);
}

int driver_pipe::send(std::string_view bytes) {
    if (bytes.size() > PIPE_BUF)
        return EMSGSIZE;
    return write(fd, bytes.data(), bytes.size()) < 0 ? errno : 0;
}

signal_device::~signal_device() {
    if (!path.empty())
        unlink(path.c_str());
    for (int fd : {slave, master})
        if (fd >= 0)
            close(fd);
}

std::string signal_device::create(std::string const& link) {
    master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    char name[64];
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name, sizeof name) != 0 ||
        (slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC)) < 0)
        return std::string("can't make a pseudo-terminal: ") + std::strerror(errno);
    make_raw(slave);
    if (leads_to_terminal(link))
        unlink(link.c_str());
    if (symlink(name, link.c_str()) != 0)
        return "can't create the link " + link + ": " + std::strerror(errno);
    path = link;
    return {};
}

std::vector<uint8_t> signal_device::receive() {
    std::vector<uint8_t> bytes(most_bytes);
    ssize_t const count = read(master, bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

size_t signal_device::send(std::span<uint8_t const> bytes) {
    ssize_t const count = write(master, bytes.data(), bytes.size());
    return count > 0 ? static_cast<size_t>(count) : 0;
}

ring_pipes::~ring_pipes() {
    for (pipe const& one : pipes) {
        unlink(one.path.c_str());
        close(one.fd);
    }
}

std::string ring_pipes::create(std::string const& base, unsigned lines) {
    for (unsigned line = 0; line < lines; line++) {
        std::string const path = base + std::to_string(line);
        if (mkfifo(path.c_str(), 0666) != 0 && !is_pipe(path))
            return "can't create the pipe " + path + ": " + std::strerror(errno);
        // For writing, too: whoever rings opens and closes it each time.
        int const fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            return "can't open the pipe " + path + ": " + std::strerror(errno);
        pipes.push_back({path, fd, {}});
    }
    return {};
}

template <class action>
void ring_pipes::receive(action&& heard) {
    for (unsigned line = 0; line < pipes.size(); line++) {
        pipe& one = pipes[line];
        char bytes[most_bytes];
        ssize_t const count = read(one.fd, bytes, sizeof bytes);
        one.begun.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        for (size_t end; (end = one.begun.find('\n')) != std::string::npos; one.begun.erase(0, end + 1))
            heard(line, one.begun.substr(0, end));
        if (one.begun.size() > most_bytes)
            one.begun.clear();
    }
}

std::string driver_links::create(links_config config) {
    script = std::move(config.script);
    std::ranges::stable_sort(script, {}, &scripted_text::time_ms);
    std::string error = config.pipe.empty() ? "" : pipe.create(config.pipe);
    if (error.empty() && !config.ring.empty())
        error = ringing.create(config.ring, bank.lines());
    if (error.empty() && !config.signal.empty())
        error = signalling.create(config.signal);
    return error;
}

void driver_links::tick() {
    uint64_t const now_ms = bank.ticks() * tick_ms;
    for (; next_text < script.size() && script[next_text].time_ms <= now_ms; next_text++)
        say(script[next_text].bytes);
    ringing.receive([this](unsigned line, std::string text) { bank.report_ring(line, std::move(text)); });
}

int driver_links::say(std::string_view bytes) {
    int const error = pipe.send(bytes);
    if (error == 0) {
        bank.report_link(event_kind::driver_line, std::string(bytes));
    } else {
        bank.report_link(event_kind::driver_line_refused,
                         error == EAGAIN ? "the process reads nothing, the pipe is full" : "too long");
    }
    return error;
}

int driver_links::signal(std::string_view hex) {
    auto const bytes = protocol::from_hex(hex);
    if (!bytes || bytes->empty()) {
        bank.report_link(event_kind::signal_refused, "not hexadecimal text");
        return EINVAL;
    }
    size_t const sent = signalling.send(*bytes);
    if (sent > 0)
        bank.report_link(event_kind::signal_to_process, protocol::to_hex(std::span(*bytes).first(sent)));
    if (sent < bytes->size())
        bank.report_link(event_kind::signal_refused, "the process reads nothing, the device is full");
    return sent == bytes->size() ? 0 : EAGAIN;
}

void driver_links::receive_signal() {
    auto const bytes = signalling.receive();
    if (!bytes.empty())
        bank.report_link(event_kind::signal_from_process, protocol::to_hex(bytes));
}

}  // namespace fxsline
