#pragma once

#include <cstdint>

#include "lib/str.h"

/// Encoder of the run-length chunks of one loss or duplicate block (RFC 3611 sections 4.1 and 4.2): collects one bit
/// per sequence number into runs of equal bits and, where they change quickly, into bit vectors. The block:
///
///     0        1 (loss) or 2 (duplicates)
///     1        thinning (bits 3-0)
///     2-3      length in 32-bit words minus one
///     4-7      SSRC it is about
///     8-9      first sequence number
///     10-11    the one behind the last
///     12..     chunks of 16 bits, filled up to a word with a null chunk
///
///     run      0 (bit 15), value of the bits (14), their number (13-0)
///     vector   1 (bit 15), 15 bits, the first one in bit 14
///
/// A run shorter than 15 that ends is not carried into the vector that follows it, so the encoded bits may fall
/// short of end - begin. Peers depend on that.
class rle_report_block {
public:
    void clear();

    /// The bit of the next sequence number (extended; what it skips is not filled). The block begins with the first
    /// one that is not negative, or else with the last.
    void add_bit(int seq, bool bit) { add_bits(seq, bit, 1); }
    /// The same bit for n sequence numbers from this one on. Costs one step for each chunk, not for each bit.
    void add_bits(int seq, bool bit, std::uint32_t n);
    /// Ends the run in progress: appends its chunk.
    void append_rle();
    /// The finished block of this type with the SSRC (4 bytes) it is about; the thinning value (0..15) goes into its
    /// header. Leaves the object cleared.
    str get_rle(str const& ssrc, int block_type, int thinning);

private:
    std::uint32_t encode(bool bit, std::uint32_t n);
    void append_chunk(std::uint32_t chunk);
    void append_vector();
    void start_run(bool bit);

    bool vector_mode = false;  ///< collecting a bit vector, else a run
    std::uint32_t count = 0;   ///< length of the run, or bits in the vector
    bool run_bit = false;
    std::uint32_t vector = 0;
    str chunks;          ///< finished 16-bit chunks, big-endian
    int begin_seq = -1;  ///< -1: no bit yet
    int end_seq = 0;     ///< behind the last bit
};
