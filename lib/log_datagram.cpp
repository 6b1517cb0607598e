#include "lib/link.h"
#include "lib/log.h"
#include "lib/tlv.h"

int log_level = -1;

namespace {

constexpr int tag_log_line = 2;  // of the message; the three below are its elements
constexpr int tag_level = 1;
constexpr int tag_message = 2;
constexpr int tag_detail = 3;

}  // namespace

int log_add_message(int level, str const& message, str const& detail) {
    str line = cmd_get_tlv_short(tag_level, level) + cmd_get_tlv_str(tag_message, message);
    if (!detail.empty())
        line += cmd_get_tlv_str(tag_detail, detail);
    send_command(cmd_get_tlv_str(tag_log_line, line));
    return 0;
}

void log_set_level(int level) {
    log_level = level;
}
