#include "media/tcp_framing.h"

#include "lib/bytes.h"
#include "lib/log_line.h"
#include "media/notifications.h"

namespace {

constexpr unsigned char turn_data_unit = 2;
constexpr unsigned char frame_start = 3;
constexpr unsigned char frame_version = 0;
constexpr int frame_header_bytes = 6;
constexpr int shortest_data = 12;

/// Bytes from the start of the data to the end of its first unit. The 4 bytes before the counted ones are OR-ed in
/// with the low byte, not added to the sum, so a carry out of it is lost when the high byte is odd.
int unit_length(str const& data) {
    return data[2] << 8 | (data[3] + 4);
}

bool is_frame(str const& data) {
    return data[0] == frame_start && data[1] == frame_version;
}

/// STUN and TURN messages have their two top bits clear (RFC 5389 section 6), media packets have not.
bool frame_holds_stun(str const& data, int length) {
    return length > frame_header_bytes && (data[frame_header_bytes] & 0xC0) == 0;
}

/// Hands the first `length` bytes up and goes on behind offset `next`.
void hand_up(str& data, int length, int next, int channel, ip_port const& from, int tag) {
    str const unit = data.leftstr(length);
    log_line(8, "TCP rec len turn_pdu %d %H", arg_int(length), arg_str(unit));
    send_command_tunnel_rtp(channel, from, unit, true, tag);
    data = data.substr(next);
}

}  // namespace

str frame_for_tcp(str const& packet) {
    unsigned const n = static_cast<unsigned>(packet.length());
    return str(frame_start, frame_version) + utils::int2str(n + 2, 2) + utils::int2str(n, 2) + packet;
}

bool process_tcp_header(str& data, int channel, ip_port const& from, int tag) {
    if (data.length() < shortest_data)
        return false;
    int const length = unit_length(data);
    if ((data[0] == turn_data_unit || is_frame(data)) && data.length() < length) {
        log_line(8, "need to wait for more data to arrive");
        return true;
    }
    if (data[0] == turn_data_unit && data[1] == 0) {
        hand_up(data, length, length + 4, channel, from, tag);
        return true;
    }
    if (!is_frame(data))
        return false;
    if (frame_holds_stun(data, length)) {
        hand_up(data, length, length + frame_header_bytes, channel, from, tag);
        return true;
    }
    data = data.substr(frame_header_bytes, length - frame_header_bytes);
    return false;
}

bool process_tcp_rtcp(str const& data) {
    return data[1] >= 200 && data[1] <= 204;
}
