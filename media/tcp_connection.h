#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// One TCP connection of a channel, for its RTP or its RTCP, opened by this side. A channel owns two.
class tcp_connection {
public:
    /// Points the connection at a peer. An open connection is kept for the same peer and replaced for another. A
    /// closed one is opened when there was no peer yet; otherwise only with `force`, and then again to the old peer.
    void connect(ip_port const& new_peer, bool force);
    /// The peer stays known; what waited to be sent is lost, so that the next connection begins with a whole frame.
    void close();

    int get_fd() const { return fd; }
    ip_port const& get_peer() const { return peer; }
    bool is_open() const;

    /// What has arrived. Empty means that the peer closed; the connection is then closed here too and "<name>
    /// connection to %s closed" logged.
    str receive(char const* name);
    /// Sends what the socket takes at once; the rest is lost.
    void send(str const& data);
    /// Appends to the queue and sends what the socket takes of it; nothing while closed. While more than 128 KiB wait,
    /// data are dropped whole.
    void queue(str const& data);

private:
    int fd = -1;
    ip_port peer;
    str out;  ///< waits for the socket to take it
};
