#include "lib/log.h"

#include "lib/datagram.h"
#include "lib/protocol.h"
#include "lib/tlv.h"

int log_level = -1;

int log_add_message(int level, str const& message, str const& detail) {
    namespace report = protocol::report_log;
    str line = cmd_get_tlv_short(report::level, level) + cmd_get_tlv_str(report::text, message);
    if (!detail.empty())
        line += cmd_get_tlv_str(report::detail, detail);
    send_command(cmd_get_tlv_str(report::tag, line));
    return 0;
}

void log_set_level(int level) {
    log_level = level;
}
