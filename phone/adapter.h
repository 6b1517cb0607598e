#pragma once

#include <string>

#include "phone/call_control.h"
#include "phone/call_led.h"
#include "phone/line_orders.h"
#include "phone/line_tones.h"
#include "phone/mailbox.h"
#include "phone/media_channels.h"
#include "phone/outside_address.h"
#include "phone/registrations.h"
#include "phone/sip_agent.h"
#include "phone/sip_events.h"
#include "phone/status_door.h"
#include "phone/telephone.h"
#include "phone/transfers.h"
#include "phone/wake_timer.h"

namespace fxsphone {

/// Brings the lines, the SIP stack, the media process and the driver together: tells the lines what happens, has their
/// orders carried out.
///
/// Lives in libre's main loop, which the caller has initialised and runs.
class adapter final : call_owner, process_events {
public:
    /// `trace_sip`: every SIP message is printed on standard error, without the keys of media.
    adapter(phone_settings const& chosen, bool trace_sip);
    ~adapter();

    /// Listens, registers, finds the media process. An empty text, or what went wrong; then only destroy it.
    std::string start();
    /// Ends all calls towards both sides; the main loop ends when the network knows, with a second call at once.
    void stop();

private:
    // From the media process
    std::string watch_process();
    void on(fxsmedia::session_started const&) override;
    void on(fxsmedia::process_lost const& loss) override;
    void on(fxsmedia::process_resumed const&) override;
    void on(fxsmedia::process_restarted const&) override;
    void on(fxsmedia::open_report const& opened) override;
    void on(fxsmedia::timed_out const& request) override;
    void on(fxsmedia::driver_report const& said) override;
    void on(fxsmedia::rtcp_report const& copy) override;
    void on(fxsmedia::new_ssrc_report const& stream) override;
    void on(fxsmedia::tunnel_report const& packet) override;
    void on(fxsmedia::confirmed const& answer) override;

    // From the network
    void heard(sip_call& call, happening what) override;
    void media_agreed(sip_call& call, media_plan const& plan) override;
    void referred(sip_call& call, sip_msg const* request) override;
    void take_invite(sip_msg const* request);
    void take_update(sip_msg const* request);
    std::string listen();
    void subscribe_to_mailboxes();

    // To the lines
    void happened(leg& of, happening what);

    // Time
    static std::int64_t now() { return fxsmedia::monotonic_ms(); }
    void pass_time();
    void wake_in_time();
    std::int64_t next_due_ms() const;

    phone_settings settings;
    bool trace;
    bool stopping = false;
    // The process and the SIP stack outlive the calls of the telephones.
    media_process process;
    sip_agent agent;
    sip_events events;
    telephone_list telephones;
    media_channels channels;
    line_tones tones;
    call_control calls;
    outside_address outside;
    transfers referrals;
    registrations registrars;
    std::vector<std::unique_ptr<mailbox>> mailboxes;
    line_orders orders;
    call_led led;
    wake_timer timer;
    status_door door;
};

}  // namespace fxsphone
