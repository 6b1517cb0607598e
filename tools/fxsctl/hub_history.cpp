#include "tools/fxsctl/hub_history.h"

#include "lib/wire.h"
#include "tools/protocol/tlv.h"

namespace fxsctl {
namespace {

constexpr int request_tag = 0xFC00;
constexpr int message_tag = 0xFC01;  ///< 4 bytes age in ms, 1 byte: it was a command, the message
constexpr int end_tag = 0xFC02;
constexpr std::size_t message_offset = 5;
constexpr std::size_t full_datagram_bytes = 16000;

}  // namespace

protocol::bytes history_request() {
    protocol::bytes request;
    protocol::append_tlv(request, request_tag, {});
    return request;
}

bool is_history_request(protocol::byte_view datagram) {
    return std::ranges::equal(datagram, history_request());
}

std::vector<protocol::bytes> history_answer(std::deque<past_message> const& history, std::int64_t now_ms) {
    std::vector<protocol::bytes> datagrams(1);
    for (past_message const& past : history) {
        protocol::bytes value(4);
        wire::put32(value.data(), static_cast<std::uint32_t>(now_ms - past.time_ms));
        value.push_back(past.command);
        value.insert(value.end(), past.message.begin(), past.message.end());
        if (datagrams.back().size() > full_datagram_bytes)
            datagrams.emplace_back();
        protocol::append_tlv(datagrams.back(), message_tag, value);
    }
    protocol::append_tlv(datagrams.back(), end_tag, {});
    return datagrams;
}

bool history_reader::take(protocol::byte_view datagram) {
    for (protocol::tlv const& one : protocol::split_tlvs(datagram).elements) {
        if (one.tag != message_tag && one.tag != end_tag)
            return false;
        ended = ended || one.tag == end_tag;
        if (one.value.size() > message_offset) {
            std::int64_t const age_ms = wire::get32(one.value.data());
            told.add(one.value[4] != 0, protocol::byte_view(one.value).subspan(message_offset), -age_ms);
        }
    }
    return true;
}

}  // namespace fxsctl
