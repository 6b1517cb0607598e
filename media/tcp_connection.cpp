#include "media/tcp_connection.h"

#include "lib/log.h"
#include "lib/sockets.h"

namespace {

constexpr int most_waiting_bytes = 128 * 1024;  // chosen: minutes of reports; a peer that leaves them is gone

}  // namespace

bool tcp_connection::is_open() const {
    return utils::valid_socket(fd);
}

void tcp_connection::connect(ip_port const& new_peer, bool force) {
    if (is_open()) {
        if (new_peer == peer)
            return;
        close();
        peer = new_peer;
    } else if (peer.empty()) {
        peer = new_peer;
    } else if (!force) {
        return;
    }
    fd = utils::open_tcp_client(peer);
}

void tcp_connection::close() {
    if (is_open())
        utils::close_tcp_socket(fd);
    fd = -1;
    out.clear();
}

str tcp_connection::receive(char const* name) {
    str data = utils::recv_tcp_packet(fd);
    if (!data.empty())
        return data;
    if (log_check_condition(7)) {
        str const shown = utils::readable_ip(peer);
        log_line(7, "%S connection to %s closed", name, arg_str(shown));
    }
    close();
    return data;
}

void tcp_connection::send(str const& data) {
    str rest = data;
    if (is_open())
        utils::send_tcp_packet(fd, rest);
}

void tcp_connection::queue(str const& data) {
    if (!is_open())
        return;
    if (out.length() <= most_waiting_bytes)
        out += data;
    utils::send_tcp_packet(fd, out);
}
