#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <random>

#include "lib/bytes.h"
#include "srtp/aes.h"
#include "srtp/srtp.h"
#include "tests/support/bytes.h"

/// What the SRTP tests write byte strings and keys with.

inline bool const tables_ready = (aes_compute_tables(), true);

/// The bytes of a text of hex digits; blanks are skipped.
inline str hex(char const* text) {
    return to_str(from_hex(text));
}

inline str random_octets(std::mt19937& random, int n) {
    str octets;
    for (int i = 0; i < n; i++)
        octets += static_cast<unsigned char>(random());
    return octets;
}

inline int below(std::mt19937& random, int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

/// One direction under 16 bytes of master key and 14 of master salt; those missing at the end are zero.
inline srtp_ctx keyed(str const& key, str const& own_ssrc) {
    srtp_ctx context;
    srtp_init(context, key.substr(0, 16), key.substr(16, 14), own_ssrc);
    return context;
}

/// How GoogleTest shows a str.
inline void PrintTo(str const& octets, std::ostream* out) {
    *out << utils::bin2hex(octets, false).c_str();
}
