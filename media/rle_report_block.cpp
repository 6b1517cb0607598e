#include "media/rle_report_block.h"

#include <algorithm>

#include "lib/byte_writer.h"
#include "lib/wire.h"

namespace {

// Chunks of 16 bits, RFC 3611 section 4.1.
constexpr std::uint32_t longest_run = 16383;  // 14 bits
constexpr std::uint32_t vector_bits = 15;
constexpr std::uint32_t vector_chunk = 0x8000;
constexpr int run_bit_shift = 14;
constexpr std::uint32_t null_chunk = 0;

}  // namespace

void rle_report_block::clear() {
    *this = rle_report_block();
}

void rle_report_block::append_chunk(std::uint32_t chunk) {
    unsigned char bytes[2];
    wire::put16(bytes, chunk);
    chunks.append(bytes, sizeof bytes);
}

void rle_report_block::append_rle() {
    append_chunk(static_cast<std::uint32_t>(run_bit) << run_bit_shift | count);
}

void rle_report_block::append_vector() {
    append_chunk(vector_chunk | (vector & (vector_chunk - 1)));
    vector_mode = false;
    count = 0;
}

void rle_report_block::start_run(bool bit) {
    count = 1;
    run_bit = bit;
}

void rle_report_block::add_bits(int seq, bool bit, std::uint32_t n) {
    if (n == 0)
        return;
    int const last = static_cast<int>(static_cast<std::uint32_t>(seq) + n - 1);
    if (begin_seq < 0)
        begin_seq = std::min(last, std::max(seq, 0));
    end_seq = static_cast<int>(static_cast<std::uint32_t>(last) + 1);
    while (n > 0)
        n -= encode(bit, n);
}

/// Takes as many of n equal bits as one step can, and says how many.
std::uint32_t rle_report_block::encode(bool bit, std::uint32_t n) {
    if (vector_mode) {
        vector = vector * 2 + bit;
        if (++count == vector_bits)
            append_vector();
    } else if (count == 0) {
        start_run(bit);
    } else if (count == longest_run) {
        append_rle();
        start_run(bit);
    } else if (bit == run_bit) {
        std::uint32_t const taken = std::min(n, longest_run - count);
        count += taken;
        return taken;
    } else if (count < vector_bits) {
        vector_mode = true;
        count = 0;
        vector = bit;
    } else {
        append_rle();
        start_run(bit);
    }
    return 1;
}

str rle_report_block::get_rle(str const& ssrc, int block_type, int thinning) {
    if (vector_mode) {
        vector <<= vector_bits - count;
        append_vector();
    } else {
        append_rle();
    }
    if (chunks.length() % 4 != 0)
        append_chunk(null_chunk);
    byte_writer block;
    block.put8(static_cast<std::uint32_t>(block_type)).put8(static_cast<std::uint32_t>(thinning & 15));
    block.put16(static_cast<std::uint32_t>(chunks.length() / 4 + 2)).put(ssrc);
    block.put16(static_cast<std::uint32_t>(begin_seq)).put16(static_cast<std::uint32_t>(end_seq)).put(chunks);
    clear();
    return block.get();
}
