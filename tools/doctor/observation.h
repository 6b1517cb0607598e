#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What was seen of a media process and its calls in a window of time. Values only: rules.h makes verdicts of them.
/// What could not be seen is absent.
namespace doctor {

/// Packets of one sender, SSRC and payload type on one way.
struct stream {
    std::string from;           ///< "192.0.2.7:4000"
    std::string to;             ///< the same of the other end
    std::uint16_t to_port = 0;  ///< of the other end
    std::uint32_t ssrc = 0;
    std::uint8_t payload_type = 0;
    unsigned packets = 0;
    double first_s = 0;  ///< since the window began
    double last_s = 0;
    std::size_t payload_bytes = 0;    ///< of the last packet
    unsigned odd_lengths = 0;         ///< packets whose payload is no multiple of 10 ms
    bool looks_encrypted = false;     ///< its bytes are spread as evenly as those of a cipher
    std::optional<double> drift_ppm;  ///< sender's clock against ours; only when the window shows it surely
    double drift_doubt_ppm = 0;       ///< how far off that may be

    /// Of G.711, decoded by the announced law.
    struct sound {
        double level_dbfs = -100;       ///< of the loudest 100 ms
        double dynamic_db = 0;          ///< between the loudest and the quietest
        double digital_silence = 0;     ///< share of packets that hold one value only
        double clipped = 0;             ///< share of samples at the end of the scale
        double other_law_smoother = 0;  ///< times, when read by the other law; 0: that one does not fit better
    };
    std::optional<sound> heard;
};

/// Datagrams that reached this machine for ports that nobody has.
struct stray {
    std::string from;
    std::uint16_t port = 0;
    unsigned packets = 0;
};

enum class clarity { unknown, no, yes };

struct line_facts {
    unsigned line = 0;
    std::string path;
    std::string trouble;  ///< why the device can't be used; empty: nothing is known against it
    clarity is_open = clarity::unknown;
    clarity is_read = clarity::unknown;  ///< the process got blocks from it in the window
    std::vector<unsigned> calls;         ///< put on it, in that order, as far as commands were seen
};

/// What commands have set; absent where they were not seen.
struct settings_facts {
    bool codecs = false;  ///< the next three are known
    int send_payload_type = -1;
    int send_codec = -1;
    std::map<int, int> accepted;  ///< codec by payload type
    bool destination = false;     ///< the next two are known
    std::string rtp_dest;         ///< empty: none
    std::string rtcp_dest;
    bool tcp = false;
    bool keys = false;  ///< the next two are known
    bool receive_key = false;
    bool send_key = false;
    bool line_known = false;
    std::optional<unsigned> line;
};

/// From copies of RTCP packets.
struct report_facts {
    unsigned sent = 0;                      ///< reports of the process in the window
    unsigned received = 0;                  ///< reports of the peer
    std::optional<unsigned> sent_packets;   ///< how far the process's packet count moved
    std::optional<unsigned> sent_total;     ///< the count itself
    std::optional<unsigned> accepted;       ///< how far its highest received sequence number moved
    std::optional<unsigned> peer_sent;      ///< how far the peer's packet count moved
    std::optional<unsigned> peer_accepted;  ///< how far the peer's highest sequence number of our stream moved
    bool peer_reports_us = false;           ///< the peer has a block about our stream
    std::optional<double> peer_loss_percent;
    std::optional<unsigned> buffer_ms;  ///< mean of the jitter buffer, of an extended report
};

struct call_facts {
    unsigned call = 0;
    std::uint16_t rtp_port = 0;
    clarity ipv4 = clarity::unknown;  ///< whether the RTP port is bound in the family
    clarity ipv6 = clarity::unknown;
    std::uint64_t drops = 0;  ///< datagrams lost in the socket's queue during the window
    settings_facts set;
    report_facts reports;
    unsigned new_streams = 0;      ///< taken up in the window
    bool ever_received = false;    ///< a stream was taken up, as far as reports were seen
    bool verified = false;         ///< a packet passed authentication
    unsigned wrong_tags = 0;       ///< as a log line said, 0: none did
    std::vector<stream> arriving;  ///< at its RTP port
    std::vector<stream> leaving;
    unsigned refused_by_peer = 0;  ///< ICMP "port unreachable" about what left
};

struct process_facts {
    std::string address;  ///< of its control port
    std::string program;  ///< "fxsmedia (123)"; empty: it can't be seen
    bool listens = true;  ///< somebody has the control port
    bool answers = true;
    char state = '?';                   ///< of /proc/PID/stat
    std::uint64_t unread_commands = 0;  ///< bytes in the control socket's queue
    std::vector<int> locked_out;        ///< processes started on the same port that have no control socket
    bool session_lost = false;          ///< the monitor had it no more and took it back
};

struct observation {
    double seconds = 0;
    bool packets_seen = false;     ///< a packet socket was allowed
    std::string packets_obstacle;  ///< why not
    bool through_monitor = false;  ///< otherwise the session was taken
    bool commands_seen = false;    ///< the monitor told the history of the calls
    process_facts process;
    std::vector<line_facts> lines;
    std::vector<call_facts> calls;
    std::vector<stray> strays;
};

}  // namespace doctor
