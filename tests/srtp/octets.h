#pragma once

#include <gtest/gtest.h>

#include <ostream>

#include "srtp/aes.h"
#include "tests/support/bytes.h"

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
