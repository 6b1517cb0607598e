#include "control/sigchan.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/protocol.h"
#include "lib/sockets.h"
#include "lib/tlv.h"

str tunnel_device;
int sigchan_fd = -1;
retry_pause sigchan_pause;

namespace {

constexpr int read_bytes = 1024;

/// Raw bytes at 115200 baud; a read returns at once with what is there.
void configure(int fd) {
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    cfsetspeed(&settings, B115200);
    tcsetattr(fd, TCSANOW, &settings);
}

}  // namespace

void sigchan_open(str const& path) {
    if (path.empty())
        return;
    str name = path;
    sigchan_fd = open(name.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY);
    if (!utils::valid_socket(sigchan_fd)) {
        log_line(0, "Could not open %s", arg_str(path));
        return;
    }
    sigchan_pause.clear();
    configure(sigchan_fd);
    log_line(5, "Opened %s", arg_str(path));
}

void sigchan_process() {
    if (!utils::valid_socket(sigchan_fd))
        return;
    static unsigned char bytes[read_bytes];
    ssize_t const n = read(sigchan_fd, bytes, sizeof bytes);
    sigchan_pause.note(n > 0);
    if (n <= 0)
        return;
    str const data(bytes, static_cast<int>(n));
    send_command(cmd_get_tlv_str(protocol::report_signal::tag, cmd_get_tlv_str(protocol::report_signal::data, data)));
}

void sigchan_send(str const& data) {
    if (data.empty())
        return;
    int const length = data.length();
    if (write(sigchan_fd, data.cbuffer(), static_cast<size_t>(length)) == length)
        return;
    log_line(3, "Could not write %d bytes", arg_int(length));
}
