#include "tools/fxsctl/rtcp_reader.h"

#include "lib/protocol.h"
#include "lib/wire.h"
#include "tools/protocol/tlv.h"
#include "tools/rtcp/packet.h"

namespace fxsctl {
namespace {

using protocol::bytes;
namespace field = protocol::cmd_media;

bytes const* find(protocol::tlv_list const& fields, int tag) {
    bytes const* found = nullptr;
    for (protocol::tlv const& one : fields.elements)
        found = one.tag == tag ? &one.value : found;
    return found;
}

std::optional<std::uint16_t> call_of(protocol::tlv_list const& fields) {
    bytes const* value = find(fields, field::call);
    if (value == nullptr || value->size() != 2)
        return std::nullopt;
    return wire::get16(value->data());
}

/// Both directions' keys: a peer may be another call of the same process, which has them crossed.
std::vector<rtcp_view::srtcp_key> keys_of(protocol::tlv_list const& fields) {
    bytes const* mki = find(fields, field::srtp_mki);
    std::vector<rtcp_view::srtcp_key> found;
    for (int const tag : {int{field::srtp_rx_key}, int{field::srtp_tx_key}})
        if (bytes const* key = find(fields, tag))
            found.push_back({*key, mki != nullptr ? *mki : bytes()});
    return found;
}

}  // namespace

rtcp_view::rtcp_observation observation(protocol::rtcp_copy const& copy, rtcp_reading const& reading,
                                        std::int64_t time_ms) {
    return {copy.call, copy.call_id, copy.received, reading.readable(), time_ms, reading.packets};
}

void rtcp_reader::use(protocol::media_command const& keys) {
    for (std::optional<bytes> const& key : {keys.srtp_rx_key, keys.srtp_tx_key})
        if (key)
            for_all.push_back({*key, keys.srtp_mki.value_or(bytes())});
}

void rtcp_reader::learn(protocol::byte_view commands) {
    for (protocol::tlv const& command : protocol::split_tlvs(commands).elements) {
        protocol::tlv_list const fields = protocol::split_tlvs(command.value);
        std::optional<std::uint16_t> const call = call_of(fields);
        key_list found = keys_of(fields);
        if (call && command.tag == field::tag && !found.empty())
            by_call[*call] = std::move(found);
    }
}

rtcp_reading rtcp_reader::read(protocol::rtcp_copy const& copy) const {
    key_list candidates;
    if (auto const own = by_call.find(copy.call); copy.received && own != by_call.end())
        candidates = own->second;
    if (copy.received)
        candidates.insert(candidates.end(), for_all.begin(), for_all.end());
    for (rtcp_view::srtcp_key const& key : candidates)
        if (auto const plain = rtcp_view::open_srtcp(key, copy.packet))
            return {"decrypted", *plain, rtcp_view::parse_compound(*plain)};
    if (copy.received && rtcp_view::looks_encrypted(copy.packet))
        return {candidates.empty() ? "no key" : "wrong key", copy.packet, {}};
    return {"none", copy.packet, rtcp_view::parse_compound(copy.packet)};
}

}  // namespace fxsctl
