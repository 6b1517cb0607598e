#include "codecs/g729a/g729a.h"

// Packing of the parameters (G.729 Table 8, RFC 3551 4.5.6) and parity of the pitch delay.

namespace {

constexpr int widths[g729a_parameters] = {8, 10, 8, 1, 13, 4, 7, 5, 13, 4, 7};

}  // namespace

void prm2bits_ld8k(int16_t const parameters[g729a_parameters], uint8_t bytes[g729a_frame_bytes]) {
    uint32_t pending = 0;  // bits not yet written, at most 7 + 13
    int pending_bits = 0;
    for (int i = 0; i < g729a_parameters; ++i) {
        uint32_t const mask = (1u << widths[i]) - 1;
        pending = pending << widths[i] | (static_cast<uint32_t>(parameters[i]) & mask);
        pending_bits += widths[i];
        for (; pending_bits >= 8; pending_bits -= 8)
            *bytes++ = static_cast<uint8_t>(pending >> (pending_bits - 8));
    }
}

void bits2prm_ld8k(uint8_t const bytes[g729a_frame_bytes], int16_t parameters[g729a_parameters]) {
    uint32_t pending = 0;
    int pending_bits = 0;
    for (int i = 0; i < g729a_parameters; ++i) {
        for (; pending_bits < widths[i]; pending_bits += 8)
            pending = pending << 8 | *bytes++;
        pending_bits -= widths[i];
        uint32_t const mask = (1u << widths[i]) - 1;
        parameters[i] = static_cast<int16_t>((pending >> pending_bits) & mask);
    }
}

// G.729 3.7.2: the bit sent is the complement of the XOR of the six bits.
int16_t g729a_pitch_parity(int16_t p1) {
    int16_t parity = 1;
    for (int bit = 2; bit < 8; ++bit)
        parity = static_cast<int16_t>(parity ^ ((p1 >> bit) & 1));
    return parity;
}
