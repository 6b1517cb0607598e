#include "phone/ring_device.h"

#include <fcntl.h>
#include <unistd.h>

namespace fxsphone {

namespace {

/// Printable ASCII, and no longer than a telephone shows (ETSI EN 300 659-3: names of 50 characters).
std::string shown(std::string_view text) {
    std::string clean;
    for (char const one : text.substr(0, 50))
        clean += one >= ' ' && one <= '~' ? std::string(1, one) : "";
    return clean;
}

}  // namespace

bool ring_device::ring(int line, std::string_view number, std::string_view name, ring_cadence const& cadence) const {
    std::string text = "caller " + shown(number) + (name.empty() ? "" : " " + shown(name)) + "\n";
    if (!cadence.empty())
        text += "cadence";
    for (int const time_ms : cadence)
        text += " " + std::to_string(time_ms);
    return say(line, text + (cadence.empty() ? "" : "\n") + "ring\n");
}

bool ring_device::stop(int line) const {
    return say(line, "stop\n");
}

bool ring_device::howl(int line) const {
    return say(line, "howl\n");
}

bool ring_device::say(int line, std::string const& text) const {
    if (base.empty())
        return true;
    int const fd = open((base + std::to_string(line)).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool const said = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return said;
}

}  // namespace fxsphone
