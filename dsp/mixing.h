#pragma once

/// Adds n samples of one block of PCM (16 bits, host byte order, at any address) to those of another, saturated.
void mix_samples(unsigned char const* a, unsigned char const* b, int n, unsigned char* sums);
