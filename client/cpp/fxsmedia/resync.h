#pragma once

#include <cstddef>

/// The zeros that make a process answer again that waits for the rest of a broken command.
///
/// The process reads all datagrams as one stream of elements. After a broken one it may wait for 65,535 bytes of a
/// value, and what follows may begin up to 3 bytes off an element. Zeros complete the value; the others are empty
/// elements of tag 0, which it ignores. A session command behind them is then answered, or is misread because of 1 to 3
/// zeros before it:
///
///     zeros  the session command is read as        the next element begins, modulo 4, behind it at
///     1      tag 0 with 0x1300 bytes               3
///     2      tag 0 with 0x13 bytes                 1
///     3      tag 0, then tag 0x1300, both empty    1
///
/// (the same for several session commands in a row). A run of zeros that is longer than 0x1300 bytes and 1 modulo 4
/// leads from 1 to 2, and from 2 and 3 to an answer. A process that is in order, but too busy to answer, goes from 0
/// over 1 and 2 back to 0: after all runs nothing has changed for it, provided that the first one is a multiple of 4.
/// Between the runs nothing but session commands may be sent, and the zeros must not come from the process's peer, or
/// it would carry out what they complete.
namespace fxsmedia {

inline constexpr int resync_runs = 4;
inline constexpr std::size_t resync_piece_bytes = 32770;  ///< a datagram: two for the first run

/// Of run 0 to 3.
constexpr std::size_t resync_bytes(int run) {
    return run == 0 ? 65540 : 0x1300 + 5;
}
static_assert(resync_bytes(0) >= 65535 + 3 && resync_bytes(0) % 4 == 0 && resync_bytes(1) % 4 == 1);

}  // namespace fxsmedia
