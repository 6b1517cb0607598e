#pragma once

#include <cstdint>

#include "lib/str.h"
#include "srtp/aes.h"

/// GHASH, what Galois/counter mode authenticates with (NIST SP 800-38D section 6.4), as a running value. No table and
/// no branch depends on the key or the data. Knows no cipher.
class ghash {
public:
    /// key: the cipher's output for a block of zeros.
    explicit ghash(v128_t const& key);
    /// Takes whole blocks; a last one that is shorter is filled with zeros.
    void update(str const& data);
    /// Takes the closing block with both lengths, in bytes here, and gives the result.
    v128_t finish(int associated_bytes, int encrypted_bytes);

private:
    /// An element of GF(2^128), the coefficient of x^0 in the most significant bit.
    struct element {
        std::uint64_t high, low;
    };
    void take(std::uint64_t high, std::uint64_t low);

    element h;
    element y{0, 0};
};
