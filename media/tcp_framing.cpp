#include "media/tcp_framing.h"

#include "lib/bytes.h"

namespace {

constexpr unsigned char turn_data_unit = 2;
constexpr unsigned char frame_start = 3;
constexpr unsigned char frame_version = 0;
constexpr int frame_header_bytes = 6;
constexpr int length_field_end = 4;
constexpr int shortest_data = 12;

/// Bytes from the start of the piece to the end of its first unit. The 4 bytes before the counted ones are OR-ed in
/// with the low byte, not added to the sum, so a carry out of it is lost when the high byte is odd.
int unit_length(str const& piece) {
    return piece[2] << 8 | (piece[3] + length_field_end);
}

bool is_frame(str const& piece) {
    return piece[0] == frame_start && piece[1] == frame_version;
}

/// STUN and TURN messages have their two top bits clear (RFC 5389 section 6), media packets have not.
bool frame_holds_stun(str const& piece, int length) {
    return length > frame_header_bytes && (piece[frame_header_bytes] & 0xC0) == 0;
}

tcp_unit control_unit(str const& piece, int length, int next) {
    return {tcp_unit::kind::control, piece.leftstr(length), piece.substr(next)};
}

}  // namespace

str frame_for_tcp(str const& packet) {
    unsigned const n = static_cast<unsigned>(packet.length());
    return str(frame_start, frame_version) + utils::int2str(n + 2, 2) + utils::int2str(n, 2) + packet;
}

tcp_unit parse_tcp_unit(str const& piece) {
    bool const framed = is_frame(piece);
    if (piece.length() < shortest_data || (piece[0] != turn_data_unit && !framed))
        return {tcp_unit::kind::bare, piece, str()};
    int const length = unit_length(piece);
    if (piece.length() < length)
        return {tcp_unit::kind::incomplete, str(), piece};
    if (!framed)
        return piece[1] == 0 ? control_unit(piece, length, length + length_field_end)
                             : tcp_unit{tcp_unit::kind::bare, piece, str()};
    if (frame_holds_stun(piece, length))
        return control_unit(piece, length, length + frame_header_bytes);
    return {tcp_unit::kind::packet, piece.substr(frame_header_bytes, length - frame_header_bytes), str()};
}
