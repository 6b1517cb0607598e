#pragma once

#include "lib/address.h"
#include "lib/rtimestamp.h"
#include "lib/str.h"
#include "media/tcp_connection.h"

/// One local port of a channel, for its RTP or its RTCP: a UDP socket of each family in use, a TCP connection that may
/// stand in for them, where packets go and where they come from. Knows neither RTP nor keys nor audio. A channel owns
/// two, opened together by open_pair().
class media_port {
public:
    /// What a UDP socket gave.
    struct datagram {
        str data;          ///< empty: nothing came
        ip_port from;      ///< unset when nothing came
        rtimestamp stamp;  ///< the kernel's, time of day; 0 when it has none
    };

    /// The name stands in the log line of a connection that the peer closed ("RTP", "RTCP").
    explicit media_port(char const* log_name) : name(log_name) {}

    /// Closes both and opens an even port for RTP and the one above it for RTCP in [lowest, end): up to 8 random
    /// tries, then a scan. False, with both closed, when no pair could be had.
    static bool open_pair(media_port& rtp, media_port& rtcp, int lowest, int end);
    void close();
    /// Closed, without destination, peer and source.
    void reset();
    /// The type-of-service byte of what is sent by UDP; 0 leaves the system's. Its failure does not matter.
    void set_type_of_service(int tos) const;

    /// Where packets go from now on: by datagrams, or through a TCP connection to there.
    void set_destination(ip_port const& to, bool tcp);

    /// One datagram of that family.
    datagram receive4() const;
    datagram receive6() const;
    /// What has arrived on the connection; empty: the peer closed it.
    str receive_stream() { return connection.receive(name); }

    /// Sends a packet to the destination; what an open connection does not take at once is lost. Returns the bytes as
    /// they left: framed on an open connection, else the packet's.
    int send(str const& packet);
    /// The same, but on a connection the rest waits for the next call.
    void send_or_queue(str const& packet);
    /// Sends data as it is, to the destination or connection's peer when `to` is empty.
    void send_bare(ip_port const& to, str const& data, bool tcp);

    /// Keeps the address that packets come from.
    void set_source(ip_port const& from) { source = from; }
    /// Whether `from` is the source; the first one to ask becomes it.
    bool latch_source(ip_port const& from);

    /// -1 when closed.
    int get_fd4() const { return fd4; }
    int get_fd6() const { return fd6; }
    int get_tcp_fd() const { return connection.get_fd(); }
    /// 0 while closed.
    int get_number() const { return number; }
    /// Whether packets go through the connection.
    bool is_tcp() const { return over_tcp; }
    ip_port const& get_destination() const { return destination; }
    ip_port const& get_tcp_peer() const { return connection.get_peer(); }

private:
    static bool try_pair(media_port& rtp, media_port& rtcp, int port);
    bool open(int port);
    void send_to_destination(str const& data) const;
    void send_datagram(ip_port const& to, str const& data) const;

    char const* name;
    int fd4 = -1;
    int fd6 = -1;
    int number = 0;
    tcp_connection connection;
    bool over_tcp = false;
    ip_port destination;  ///< of datagrams
    utils::socket_address destination_address{destination};
    ip_port source;
};
