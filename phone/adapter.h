#pragma once

#include <fxsmedia/client.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "phone/call_media.h"
#include "phone/call_record.h"
#include "phone/libre.h"
#include "phone/referral.h"
#include "phone/registration.h"
#include "phone/ring_device.h"
#include "phone/settings.h"
#include "phone/sip_agent.h"
#include "phone/sip_call.h"
#include "phone/sip_events.h"
#include "phone/status_door.h"

namespace fxsphone {

/// Brings the lines, the SIP stack, the media process and the driver together: carries out the orders of the lines,
/// tells them what happens. Line N has the media channels 2N and 2N+1, one for each of its legs.
///
/// Lives in libre's main loop, which the caller has initialised and runs.
class adapter final : call_owner {
public:
    adapter(phone_settings const& chosen, bool trace_sip);
    ~adapter();

    /// An empty text, or what went wrong.
    std::string start();
    /// Ends all calls towards both sides; the main loop ends when the network knows.
    void stop();

private:
    struct leg {
        int channel = 0;
        int line = 0;
        bool on_process = false;    ///< its channel was opened and not ended yet
        int rtp_port = 0;           ///< 0: the process has not told yet
        std::uint8_t ssrc[4] = {};  ///< kept through the call's changes
        std::string to_invite;      ///< once the port is known
        std::string invite_headers;
        bool anonymous = false;
        bool to_answer = false;  ///< likewise
        std::unique_ptr<session_description> media;
        std::optional<srtp_plan> srtp;              ///< the keys that its channel has
        std::optional<fxsmedia::endpoint> offered;  ///< where the far end wants RTP
        std::optional<fxsmedia::endpoint> source;   ///< where it comes from, when that was a private address
        std::unique_ptr<sip_call> call;
        std::unique_ptr<sent_referral> asked;     ///< its far end is to call somebody else
        std::unique_ptr<taken_referral> follows;  ///< the other leg's far end has named whom this one calls
        std::optional<call_record> record;
        call_media heard;
        bool held = false;                 ///< by this telephone
        std::int64_t speaks_since_ms = 0;  ///< neither end holds the call; 0: one does
    };
    struct telephone {
        telephone(telephone_settings const& chosen, line idle) : settings(chosen), state(std::move(idle)) {}

        telephone_settings settings;
        line state;
        leg legs[2];
        std::int64_t lifted_ms = 0;  ///< until its dial tone is heard
        std::int64_t lift_to_tone_ms = 0;
        std::int64_t last_key_ms = 0;
        int waiting_leg = -1;  ///< plays the call-waiting tone until waiting_tone_end
        std::int64_t waiting_tone_end = 0;
        int stutter_leg = -1;  ///< its dial tone goes off and on until there are no bursts left
        int stutters_left = 0;
        std::int64_t stutter_due = 0;
    };
    friend fxsmedia::client<adapter>;

    // From the media process
    void on(fxsmedia::session_started const&);
    void on(fxsmedia::process_lost const&);
    void on(fxsmedia::process_resumed const&);
    void on(fxsmedia::process_restarted const&);
    void on(fxsmedia::open_report const& opened);
    void on(fxsmedia::timed_out const& request);
    void on(fxsmedia::driver_report const& said);
    void on(fxsmedia::rtcp_report const& copy);
    void on(fxsmedia::new_ssrc_report const& stream);
    void on(fxsmedia::confirmed const& answer);
    void on(auto const&) {}

    // From the network
    void heard(sip_call& call, happening what) override;
    void media_agreed(sip_call& call, media_plan const& plan) override;
    void referred(sip_call& call, sip_msg const* request) override;
    void note(leg& one, happening what);
    void follow_source(leg& one, fxsmedia::endpoint const& source);
    void register_telephones();
    bool sent_elsewhere(telephone const& called, sip_msg const* request);
    void message_summary(std::string const& user, bool waiting);
    void remember();
    void take_invite(sip_msg const* request);
    bool takes_over(sip_msg const* request);
    void take_over(leg& one, sip_msg const* request);
    void tell_referrer(leg& one, happening what);
    void transfer_ended(leg& one, bool reached);

    // To them
    void carry_out(telephone& which, std::vector<order> const& orders);
    void carry_out(telephone& which, order const& one);
    void open(leg& one, bool on_line);
    void end(leg& one);
    void write_record(leg& one);
    std::unique_ptr<session_description> describe_media(leg const& one, bool over_ipv6);
    void transfer(telephone& which, leg& one, std::string const& to);
    void begin_call(leg& one, sip_call_direction direction, bool over_ipv6);
    void invite(telephone& from, leg& one);
    void answer(telephone& at, leg& one);
    void play(leg const& one, tone sound);
    void put_on_line(leg const& one, bool on);
    void send_key(leg const& one, char key);
    void begin_stutter(telephone& which, leg const& one);
    void go_on_stuttering(telephone& which);
    void start_waiting_tone(telephone& which, leg& one);
    void ring(telephone& which, leg const& one);

    void port_known(leg& one);
    leg* leg_of(int channel);
    leg* leg_of(sip_call const& call);
    leg* leg_of(dialog_id const& dialog);
    telephone* telephone_of(int line);
    telephone* telephone_of(std::string const& user);

    void show_led();
    std::string status() const;
    std::int64_t silence_ends_ms(leg const& one) const;
    void judge_silence(leg& one);

    static std::int64_t now() { return fxsmedia::monotonic_ms(); }
    void pass_time();
    void wake_in_time();
    std::int64_t next_due_ms() const;
    template <class action>
    void tell_line(int number, action&& tell);

    phone_settings settings;
    bool trace;
    std::vector<std::unique_ptr<telephone>> telephones;
    ring_device ringer;
    sip_agent agent;
    sip_events events;
    std::vector<std::unique_ptr<registration>> registrations;
    int timer = -1;  ///< timerfd: libre's own timers follow the calendar clock, which may be stepped
    bool stopping = false;
    int led_shown = 0;
    status_door door;
    fxsmedia::client<adapter> process{*this};
};

}  // namespace fxsphone
