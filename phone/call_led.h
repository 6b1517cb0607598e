#pragma once

#include <cstdint>

#include "phone/media_channels.h"

namespace fxsphone {

/// The call LED, which all telephones share: what says most of them is shown. Hasty flashes: one rings; even ones: a
/// receiver is off; three short ones: a message waits; one flash every 5 s: all that are to be registered are; dark:
/// one is not, or none is to be.
class call_led {
public:
    explicit call_led(media_process& led_of) : process(led_of) {}

    /// Sends what has changed. `registered`: as above.
    void show(telephone_list const& telephones, bool registered, std::int64_t now_ms);
    /// When show() is to be called again; INT64_MAX: when something happens.
    std::int64_t due_ms() const { return turn_ms; }
    /// The process has been restarted: it is dark.
    void forget() { commanded = 0; }

private:
    media_process& process;
    int commanded = 0;
    std::int64_t turn_ms = INT64_MAX;  ///< when the flash for registration goes on or off
    bool flashes = false;
};

}  // namespace fxsphone
