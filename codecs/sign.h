#pragma once

/// Sign and magnitude without a branch, for the ADPCM coders.

/// 0 for value >= 0, else -1.
inline int sign_of(int value) {
    return value >> 31;
}

/// value, negated when sign is -1.
inline int with_sign(int value, int sign) {
    return (value ^ sign) - sign;
}
