#include "control/fxs_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include "lib/link.h"
#include "lib/log_line.h"
#include "lib/tlv.h"

int fxs_in_fd = -1;
int fxs_out_fd = -1;

namespace {

constexpr int tag_driver_line = 25;
constexpr int read_bytes = 128;

int open_end(str const& base_path, int number) {
    str path = base_path + str(number, 0);
    return open(path.c_str(), O_RDWR);
}

void close_input() {
    log_line(1, "FXS message pipe closed");
    close(fxs_in_fd);
    fxs_in_fd = -1;
}

}  // namespace

void open_fxs_pipe(str const& base_path) {
    fxs_in_fd = open_end(base_path, 0);
    fxs_out_fd = open_end(base_path, 1);
}

void process_fxs_input() {
    static str pending;
    unsigned char bytes[read_bytes];
    ssize_t const n = read(fxs_in_fd, bytes, sizeof bytes);
    if (n == 0)
        close_input();
    if (n <= 0)
        return;
    pending.append(bytes, static_cast<int>(n));
    for (int end = pending.find(str::newline); end >= 0; end = pending.find(str::newline)) {
        str const line = pending.leftstr(end).strip(str::crlf);
        pending = pending.substr(end + 1).strip(str::crlf);
        send_command(cmd_get_tlv_str(tag_driver_line, line));
    }
}
