#pragma once

#include <gtest/gtest.h>

#include <ostream>

#include "lib/bytes.h"
#include "srtp/aes.h"
#include "tests/support/bytes.h"
#include "tests/support/seed.h"

/// What the SRTP tests write byte strings with.

inline bool const tables_ready = (aes_compute_tables(), true);

/// The bytes of a text of hex digits; blanks are skipped.
inline str hex(char const* text) {
    return to_str(from_hex(text));
}

/// How GoogleTest shows a str.
inline void PrintTo(str const& octets, std::ostream* out) {
    *out << to_hex(to_string(octets));
}

inline str random_octets(dice& random, int n) {
    str octets;
    for (int i = 0; i < n; i++)
        octets += static_cast<unsigned char>(random.word());
    return octets;
}

/// A header with a CSRC list and an extension of random length (RFC 3550 section 5.1).
inline str random_header(dice& random, std::uint32_t sequence, str const& own_ssrc) {
    int const csrcs = random.below(4), extension = random.below(3) - 1;
    str all(static_cast<unsigned char>(0x80 | csrcs | (extension < 0 ? 0 : 0x10)), 1);
    all += random_octets(random, 1) + utils::int2str(sequence, 2) + random_octets(random, 4) + own_ssrc +
           random_octets(random, 4 * csrcs);
    if (extension >= 0)
        all += random_octets(random, 2) + utils::int2str(static_cast<unsigned>(extension), 2) +
               random_octets(random, 4 * extension);
    return all;
}
