#include "control/driver.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "dsp/devmgr.h"
#include "lib/datagram.h"
#include "lib/log.h"
#include "lib/protocol.h"
#include "lib/sockets.h"
#include "lib/tlv.h"

namespace {

/// What the C library's ioctl() takes as request: unsigned long in glibc, int in musl.
template <typename number>
number request_type(int (*)(int, number, ...));
using request_number = decltype(request_type(ioctl));

// Request numbers of the driver: _IO('0', n) in the Linux MIPS encoding.
constexpr request_number request_base = 0x20003000;
constexpr request_number request_led_on = 0x20003006;
constexpr request_number request_led_off = 0x20003007;

constexpr int reported_command = 3;

/// -1 when no line device is open.
int open_line_device() {
    int fd = -1;
    for (int i = 0; devmgrs.valid(i) && !utils::valid_socket(fd); i++)
        fd = devmgrs[i].get_fd();
    return fd;
}

/// Carries out one request; false without a device. `result` is what the driver answered.
bool driver_request(request_number number, int& result) {
    int fd = open_line_device();
    bool const only_now = !utils::valid_socket(fd);
    if (only_now) {
        str path = str::sprintf("%s0", arg_str(tdm_device));
        fd = open(path.c_str(), O_RDWR);
    }
    if (!utils::valid_socket(fd))
        return false;
    result = ioctl(fd, number, 0);
    if (only_now)
        close(fd);
    return true;
}

void report(int command, int result) {
    namespace message = protocol::report_reset_base;
    send_command(cmd_get_tlv_str(
        message::tag, cmd_get_tlv_short(message::command, command) + cmd_get_tlv_short(message::result, result)));
}

}  // namespace

void reset_base(int command) {
    log_line(5, "reset base command %d", arg_int(command));
    int result;
    if (!driver_request(request_base | static_cast<request_number>(command), result)) {
        log_line(7, "Failure to send command to driver");
        return;
    }
    if (command == reported_command)
        report(command, result);
}

void send_led_call_cmd_to_driver(int on) {
    int ignored;
    if (!driver_request(on != 0 ? request_led_on : request_led_off, ignored))
        log_line(7, "Failure to send command led call to driver");
}
