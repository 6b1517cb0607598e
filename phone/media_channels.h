#pragma once

#include <fxsmedia/client.h>

#include "phone/telephone.h"

namespace fxsphone {

/// What is heard from the media process, as the client library names it (fxsmedia/events.h); its other reports are
/// passed over.
class process_events {
public:
    virtual void on(fxsmedia::session_started const&) = 0;
    virtual void on(fxsmedia::process_lost const&) = 0;
    virtual void on(fxsmedia::process_resumed const&) = 0;
    virtual void on(fxsmedia::process_restarted const&) = 0;
    virtual void on(fxsmedia::open_report const&) = 0;
    virtual void on(fxsmedia::timed_out const&) = 0;
    virtual void on(fxsmedia::driver_report const&) = 0;
    virtual void on(fxsmedia::rtcp_report const&) = 0;
    virtual void on(fxsmedia::new_ssrc_report const&) = 0;
    virtual void on(fxsmedia::tunnel_report const&) = 0;
    virtual void on(fxsmedia::confirmed const&) = 0;
    void on(auto const&) {}

protected:
    ~process_events() = default;
};

using media_process = fxsmedia::client<process_events>;

/// What legs want of the media process: a channel each, which codes the call's audio, plays tones and keys, and is on
/// the leg's line or off it.
class media_channels {
public:
    /// `tones`: the set of the process that tones are taken from.
    media_channels(media_process& commanded, int tones) : process(commanded), tone_set(tones) {}

    /// The process answers.
    bool connected() const { return process.connected(); }

    /// Asks for the leg's channel; an open_report tells its ports later.
    void open(leg& one);
    /// Nothing when it is not open.
    void close(leg& one);
    void put_on_line(leg const& one, bool on);
    /// tone::none: silence.
    void play(leg const& one, tone sound);
    /// 0 to 9, * and # to the far end; the process knows no other keys.
    void send_key(leg const& one, char key);

    /// Another call begins on the channel: a new source, nothing agreed.
    void begin_stream(leg& one);
    /// Codes and sends as the plan says. `keys_as_events`: RFC 4733 where the far end knows it, otherwise tones.
    void follow_plan(leg& one, media_plan const& plan, bool keys_as_events);
    /// Sends to where packets come from, when the far end has named a private address: it sits behind a translator, or
    /// beside us.
    void follow_source(leg& one, fxsmedia::endpoint const& source);

private:
    media_process& process;
    int tone_set;
};

}  // namespace fxsphone
