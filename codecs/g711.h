#pragma once

#include <cstdint>

/// ITU-T G.711 as this system codes it: one table look-up a sample, A-law always by way of mu-law.
///
/// The expansion of mu-law differs from the Recommendation in two points, both wanted:
///  - its sign is the opposite of the compression's, so that a way through both inverts the polarity;
///  - it takes the bias off as 128, not 132, so that magnitudes are (4 << segment) - 4 below the usual ones.
/// Stateless; nothing is allocated. PCM is 16 bits, host byte order, at any address.
namespace g711 {

/// mu-law code of a sample: the Recommendation's coding of sample / 4 (rounded towards zero), 14 bits.
unsigned char mu_law_from_linear(std::int16_t sample);
/// Sample of a mu-law code, -31616..31616.
std::int16_t linear_from_mu_law(unsigned char code);
/// Conversion between the laws (G.711 tables 3 and 4).
unsigned char a_law_from_mu_law(unsigned char code);
unsigned char mu_law_from_a_law(unsigned char code);

/// Whole blocks: n samples, n bytes of code; in and out do not overlap.
void encode_mu_law(unsigned char const* pcm, int n, unsigned char* codes);
void decode_mu_law(unsigned char const* codes, int n, unsigned char* pcm);
void encode_a_law(unsigned char const* pcm, int n, unsigned char* codes);
void decode_a_law(unsigned char const* codes, int n, unsigned char* pcm);

}  // namespace g711
