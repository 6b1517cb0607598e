#pragma once

#include <vector>

#include "phone/call_control.h"
#include "phone/line_tones.h"
#include "phone/ring_device.h"
#include "phone/transfers.h"

namespace fxsphone {

/// Carries out what the state machine of a line orders: by its channels in the media process, in the network, at the
/// driver.
class line_orders {
public:
    line_orders(phone_settings const& chosen, media_process& commanded, telephone_list const& known,
                media_channels& opened, line_tones& played, call_control& control, transfers& referred)
        : usual_cadence(chosen.cadence),
          process(commanded),
          telephones(known),
          channels(opened),
          tones(played),
          calls(control),
          referrals(referred),
          ringer(chosen.ring_device) {}

    /// In their order. A driver that cannot be told to ring is said on standard error.
    void carry_out(telephone& which, std::vector<order> const& orders);

private:
    static std::int64_t now() { return fxsmedia::monotonic_ms(); }
    void carry_out(telephone& which, order const& one);
    void play(telephone const& which, leg const& one, tone sound);
    void ring(leg const& one) const;

    ring_cadence const& usual_cadence;
    media_process& process;
    telephone_list const& telephones;
    media_channels& channels;
    line_tones& tones;
    call_control& calls;
    transfers& referrals;
    ring_device ringer;
};

}  // namespace fxsphone
