#pragma once

#include <string>
#include <string_view>

#include "phone/ring_cadence.h"

namespace fxsphone {

/// Tells the driver to ring: one writable path for each line, BASE0 to BASE3, a device or a named pipe. It is opened
/// for each line of text, so that the driver may come and go (docs/phone.md).
class ring_device {
public:
    /// An empty base: telephones don't ring.
    explicit ring_device(std::string const& base_path) : base(base_path) {}

    /// "caller NUMBER NAME", "cadence MS MS..." unless it is empty, then "ring". What is no printable ASCII in number
    /// and name is left out. All return false when the driver cannot be told, see errno.
    bool ring(int line, std::string_view number, std::string_view name, ring_cadence const& cadence) const;
    bool stop(int line) const;
    /// "howl": the receiver was left off; until "stop".
    bool howl(int line) const;

private:
    bool say(int line, std::string const& text) const;

    std::string base;
};

}  // namespace fxsphone
