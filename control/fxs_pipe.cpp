#include "control/fxs_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/protocol.h"
#include "lib/tlv.h"

int fxs_in_fd = -1;
int fxs_out_fd = -1;
retry_pause fxs_in_pause;

namespace {

constexpr int read_bytes = 128;
constexpr int longest_line =
    65535 - 20 - 8 - tlv_header_bytes;  // of an IPv4 datagram: behind IP, UDP and element headers

int open_end(str const& base_path, int number) {
    str path = base_path + str(number, 0);
    return open(path.c_str(), O_RDWR);
}

void close_input() {
    log_line(1, "FXS message pipe closed");
    close(fxs_in_fd);
    fxs_in_fd = -1;
}

/// Cuts off what a message has no room for. Whether more than line ends was lost: those go anyway.
bool cut(str& line) {
    if (line.length() <= longest_line)
        return false;
    line = line.strip_leading(str::crlf);
    str const surplus = line.substr(longest_line).strip(str::crlf);
    line = line.leftstr(longest_line);
    return !surplus.empty();
}

}  // namespace

void open_fxs_pipe(str const& base_path) {
    fxs_in_pause.clear();
    fxs_in_fd = open_end(base_path, 0);
    fxs_out_fd = open_end(base_path, 1);
}

void process_fxs_input() {
    static str pending;  // the line that is still to be completed: no line feed in it
    static bool too_long = false;
    unsigned char bytes[read_bytes];
    ssize_t const n = read(fxs_in_fd, bytes, sizeof bytes);
    fxs_in_pause.note(n > 0);
    if (n == 0)
        close_input();
    if (n <= 0)
        return;
    int searched = pending.length();
    pending.append(bytes, static_cast<int>(n));
    for (int found; (found = pending.substr(searched).find(str::newline)) >= 0; searched = 0) {
        str const line = pending.leftstr(searched + found).strip(str::crlf);
        pending = pending.substr(searched + found + 1).strip(str::crlf);
        if (!too_long && line.length() <= longest_line)
            send_command(cmd_get_tlv_str(protocol::report_driver_line::tag, line));
        too_long = false;
    }
    if (cut(pending))
        too_long = true;
}
