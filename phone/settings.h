#pragma once

#include <optional>
#include <string>
#include <vector>

#include "phone/line.h"
#include "phone/media_security.h"
#include "phone/ring_cadence.h"

namespace fxsphone {

/// What digest authentication (RFC 3261 section 22) asks for.
struct credentials {
    std::string user;
    std::string password;
};

/// Where telephones are registered, and through which their calls go.
struct registrar_settings {
    std::string name;       ///< by which lines refer to it
    std::string domain;     ///< of the addresses there: "host" or "host:port"
    std::string proxy;      ///< outbound proxy, likewise; empty: the registrar itself
    std::string transport;  ///< udp, tcp, tls; empty: DNS tells (RFC 3263), UDP where it does not
    int expires_s = 3600;   ///< asked for, as RFC 3261 section 10.2 has it
    int keep_alive_s = 25;  ///< 0: none. RFC 5626 section 4.4.1: below 30 s for UDP
    bool outbound = false;  ///< offers an RFC 5626 flow

    /// "sip:host:port;transport=tcp" of a domain or a proxy.
    std::string uri_of(std::string const& host) const {
        return "sip:" + host + (transport.empty() ? "" : ";transport=" + transport);
    }
    /// The first hop of calls.
    std::string way_out() const { return uri_of(proxy.empty() ? domain : proxy); }
    /// Its host, without port and brackets.
    std::string first_host() const {
        std::string const& first = proxy.empty() ? domain : proxy;
        return first.starts_with('[') ? first.substr(1, first.find(']') - 1) : first.substr(0, first.find(':'));
    }
};

/// For SIP over TLS.
struct tls_settings {
    int port = 5061;          ///< RFC 3261 section 18.2.1
    bool verify = true;       ///< the certificates of those that we connect to
    std::string ca_file;      ///< PEM, whom to trust; empty: whom the system trusts
    std::string certificate;  ///< PEM with its key, shown to those that connect to us; empty: they can't
};

/// How keys that the driver saw during a call get to the far end.
enum class key_transport {
    events,  ///< RFC 4733 where the far end knows it, tones otherwise
    tones,   ///< which the process makes, with the audio
    info,    ///< SIP INFO with application/dtmf-relay
    none,    ///< not by us: the telephone's own tones pass with the audio
};

/// One telephone.
struct telephone_settings {
    int number = 0;            ///< of the line, 0 to 3
    std::string user;          ///< user part of its address
    std::string display_name;  ///< empty: none
    std::vector<std::string> codecs = {"pcma", "pcmu"};
    int ptime_ms = 20;  ///< asked for (RFC 3551 section 4.2 recommends this)
    key_transport keys = key_transport::events;
    bool hide_number = false;  ///< in every call
    std::string hot_line;      ///< address; empty: none
    int hot_line_ms = 0;       ///< it is called so long after the receiver was lifted
    std::string mailbox;       ///< address to subscribe to for message summaries; empty: none
    std::optional<registrar_settings> registrar;
    credentials login;
    srtp_use srtp = srtp_use::off;
    std::vector<std::string> xr = {"rcvr-rtt", "stat-summary", "voip-metrics"};  ///< RTCP XR blocks
};

/// The whole configuration; the defaults are what fxsphone(1) says.
struct phone_settings {
    int process_port = 0;              ///< control port of the media process, UDP on 127.0.0.1
    std::string sip_ip = "127.0.0.1";  ///< also where media is received
    std::string sip_ip6;               ///< the same of IPv6 beside it; empty: none
    int sip_port = 5060;
    std::string domain;  ///< of the telephones' own addresses; empty: sip_ip:sip_port
    tls_settings tls;
    std::string stun;              ///< "host" or "host:port" of a server; empty: none
    std::string instance;          ///< UUID of the device (RFC 5626 section 4.1), needed for outbound
    std::string ring_device;       ///< the line's number is appended; empty: none
    ring_cadence cadence;          ///< told to the driver; empty: it rings as it does
    int tone_set = 1;              ///< of the control protocol, 1 to 16
    bool led = true;               ///< the call LED shows what the telephones do
    std::string status_socket;     ///< empty: none
    int session_expires_s = 1800;  ///< of calls, asked for (RFC 4028 section 4 recommends this); 0: no session timers
    int media_timeout_ms = 0;      ///< without any packet a call is said to have lost its media; 0: never
    bool media_timeout_ends = true;
    std::string state_file;  ///< what was chosen by codes; empty: forgotten at the end
    line_settings times;
    std::vector<dial_rule> plan;
    std::vector<telephone_settings> telephones;

    /// Hosts of registrars and proxies that are reached by TLS.
    std::vector<std::string> tls_hosts() const {
        std::vector<std::string> hosts;
        for (telephone_settings const& one : telephones)
            if (one.registrar && one.registrar->transport == "tls")
                hosts.push_back(one.registrar->first_host());
        return hosts;
    }
    bool uses_tls() const { return !tls.certificate.empty() || !tls_hosts().empty(); }

    /// Domain or, without one, the address that it listens on.
    std::string own_domain() const {
        bool const six = sip_ip.find(':') != std::string::npos;
        return !domain.empty() ? domain : (six ? "[" + sip_ip + "]" : sip_ip) + ":" + std::to_string(sip_port);
    }
    /// Where a far end of that family finds us.
    std::string const& ip_for(bool over_ipv6) const { return over_ipv6 && !sip_ip6.empty() ? sip_ip6 : sip_ip; }
};

}  // namespace fxsphone
