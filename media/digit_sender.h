#pragma once

#include "dsp/dtmf_synthesizer.h"
#include "lib/str.h"

/// The digits that a channel sends, one after the other in a period of 500 ms each: 60 ms silence, 380 ms tone, 60 ms
/// silence, in steps of 10 ms. The tone is sent as telephone-event packets (RFC 4733) or in band; the silence always
/// replaces captured audio. Gives payloads and PCM, knows no RTP header. A channel owns one.
class digit_sender {
public:
    /// Queues a digit: a telephone-event code (0..11: 0-9, *, #). While 1000 wait, which takes over eight minutes to
    /// send, it is not taken.
    void add(int digit);
    /// Whether a digit is being sent or waits.
    bool is_sending() const { return !queue.empty(); }
    /// Whether this step of 10 ms belongs to the tone of a digit.
    bool in_tone() const { return is_sending() && in_tone(step); }

    /// Payload of the event packet of this step, to be sent when collected_ms of the packet time of ptime_ms are
    /// over. The last three packets of an event carry the end bit. Only while in_tone().
    str event_payload(int collected_ms, int ptime_ms) const;
    /// 10 ms of a tone that is sent as events have passed.
    void pass_event_step() { step++; }

    /// PCM (16-bit, 8 kHz) with its blocks of 10 ms replaced by those of the queued digits.
    str replace(str const& pcm);

private:
    // The period of a digit in steps of 10 ms.
    static constexpr int tone_from = 6;
    static constexpr int tone_until = 44;
    static constexpr int last_step = 49;
    static constexpr int most_digits = 1000;  // chosen: beyond what anybody dials

    static bool in_tone(int step) { return step >= tone_from && step < tone_until; }
    str next_block();

    str queue;     ///< one byte each, the one being sent first
    int step = 0;  ///< of the digit being sent, 0..49
    dtmf_synthesizer generator;
};
