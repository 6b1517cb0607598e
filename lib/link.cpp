#include "lib/link.h"

#include "lib/protocol.h"
#include "lib/sockets.h"

int command_fd = -1;
ip_port control_adr(str(127, 0, 0, 1), protocol::default_peer_port);

int send_command(str const& message) {
    return utils::send_udp_packet(command_fd, control_adr, message);
}
