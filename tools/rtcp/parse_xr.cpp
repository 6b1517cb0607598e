#include <algorithm>

#include "lib/rtcp_numbers.h"
#include "lib/wire.h"
#include "tools/rtcp/byte_reader.h"
#include "tools/rtcp/xr_block.h"

namespace rtcp_view {
namespace {

using protocol::byte_view;

constexpr std::size_t block_header_bytes = 4;

sequence_range take_range(byte_reader& in, std::uint8_t thinning) {
    sequence_range range{in.u32(), thinning, 0, 0};
    range.begin = in.u16();
    range.end = in.u16();
    return range;
}

void parse_run_lengths(byte_reader& in, xr_block& out) {
    run_lengths block;
    block.duplicates = out.type == rtcp::xr_block_type::duplicate_rle;
    block.range = take_range(in, out.specific & 0x0F);
    while (in.left() >= 2) {
        std::uint16_t const chunk = in.u16();
        if (chunk != 0)
            block.chunks.push_back(chunk);
    }
    out.content = std::move(block);
}

/// How many numbers of begin .. end - 1 (modulo 2^16) are multiples of 2^thinning.
std::size_t count_reported(std::uint16_t begin, std::uint16_t end, std::uint8_t thinning) {
    std::size_t const step = std::size_t{1} << thinning;
    std::size_t const span = static_cast<std::uint16_t>(end - begin);
    std::size_t const first = (step - begin % step) % step;
    return span > first ? (span - first + step - 1) / step : 0;
}

void parse_receipt_times(byte_reader& in, xr_block& out) {
    receipt_times block;
    block.thinning = out.specific & 0x0F;
    block.ssrc = in.u32();
    while (in.left() > 0) {
        receipt_times::group group;
        group.begin = in.u16();
        group.end = in.u16();
        for (std::size_t n = count_reported(group.begin, group.end, block.thinning); n > 0 && !in.ran_out(); --n)
            group.times.push_back(in.u32());
        if (in.ran_out() && !group.times.empty())
            group.times.pop_back();  // that one was not there
        block.groups.push_back(std::move(group));
    }
    out.content = std::move(block);
}

void parse_reference_time(byte_reader& in, xr_block& out) {
    reference_time block;
    block.sent.seconds = in.u32();
    block.sent.fraction = in.u32();
    out.content = block;
}

void parse_reference_answers(byte_reader& in, xr_block& out) {
    constexpr std::size_t answer_bytes = 12;
    reference_answers block;
    while (in.left() >= answer_bytes) {
        std::uint32_t const ssrc = in.u32();
        std::uint32_t const last_rr = in.u32();
        block.answers.push_back({ssrc, last_rr, in.u32()});
    }
    out.content = std::move(block);
}

void parse_statistics(byte_reader& in, xr_block& out) {
    statistics_summary block;
    block.flags = out.specific;
    block.range = take_range(in, 0);
    block.lost = in.u32();
    block.duplicates = in.u32();
    for (std::uint32_t& value : block.jitter)
        value = in.u32();
    for (std::uint8_t& value : block.ttl)
        value = in.u8();
    out.content = block;
}

void parse_voip_metrics(byte_reader& in, xr_block& out) {
    voip_metrics block;
    block.ssrc = in.u32();
    for (std::uint8_t* value : {&block.loss_rate, &block.discard_rate, &block.burst_density, &block.gap_density})
        *value = in.u8();
    for (std::uint16_t* value : {&block.burst_ms, &block.gap_ms, &block.round_trip_ms, &block.end_system_delay_ms})
        *value = in.u16();
    for (std::uint8_t* value : {&block.levels[0], &block.levels[1], &block.levels[2], &block.gmin, &block.scores[0],
                                &block.scores[1], &block.scores[2], &block.scores[3]})
        *value = in.u8();
    for (std::uint16_t* value : {&block.configuration, &block.jb_nominal_ms, &block.jb_maximum, &block.jb_absolute_ms})
        *value = in.u16();
    out.content = block;
}

struct known_block {
    int type;
    std::size_t smallest;  ///< bytes behind the block header
    void (*parse)(byte_reader& in, xr_block& out);
};

constexpr known_block known_blocks[] = {{rtcp::xr_block_type::loss_rle, 8, parse_run_lengths},
                                        {rtcp::xr_block_type::duplicate_rle, 8, parse_run_lengths},
                                        {rtcp::xr_block_type::receipt_times, 4, parse_receipt_times},
                                        {rtcp::xr_block_type::receiver_reference_time, 8, parse_reference_time},
                                        {rtcp::xr_block_type::dlrr, 0, parse_reference_answers},
                                        {rtcp::xr_block_type::statistics_summary, 36, parse_statistics},
                                        {rtcp::xr_block_type::voip_metrics, 32, parse_voip_metrics}};

void parse_content(byte_view body, xr_block& out) {
    byte_reader in(body);
    auto const known = std::ranges::find(known_blocks, out.type, &known_block::type);
    if (known == std::end(known_blocks)) {
        out.content = opaque{in.take_rest()};
    } else if (body.size() < known->smallest) {
        out.problem = out.problem.empty() ? "too short" : out.problem;
    } else {
        known->parse(in, out);
        out.problem = in.ran_out() && out.problem.empty() ? "too short" : out.problem;
    }
    out.unread = in.take_rest();
}

}  // namespace

std::vector<xr_block> parse_xr_blocks(byte_view data) {
    std::vector<xr_block> blocks;
    while (!data.empty()) {
        xr_block block;
        if (data.size() < block_header_bytes) {
            block.problem = "no block header";
            block.unread = {data.begin(), data.end()};
            blocks.push_back(std::move(block));
            break;
        }
        block.type = data[0];
        block.specific = data[1];
        std::size_t const says = (std::size_t{wire::get16(data.data() + 2)} + 1) * 4;
        std::size_t const length = std::min(says, data.size());
        if (says > length)
            block.problem = std::to_string(length) + " of " + std::to_string(says) + " bytes";
        parse_content(data.subspan(block_header_bytes, length - block_header_bytes), block);
        blocks.push_back(std::move(block));
        data = data.subspan(length);
    }
    return blocks;
}

}  // namespace rtcp_view
