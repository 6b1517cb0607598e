#include "tools/rtcp/srtcp.h"

#include <algorithm>

#include "srtp/aes.h"
#include "srtp/srtp.h"

namespace rtcp_view {
namespace {

using protocol::byte_view;
using protocol::bytes;

constexpr std::size_t clear_bytes = 8;
constexpr std::size_t index_bytes = 4;
constexpr std::size_t tag_bytes = srtcp_tag_bytes;
constexpr std::size_t master_key_bytes = 16;
constexpr std::size_t key_and_salt_bytes = 30;
constexpr std::uint32_t encrypted_flag = 0x80000000;
constexpr std::uint32_t last_index = 0xFFFF;

str to_str(byte_view data) {
    return str(data.data(), static_cast<int>(data.size()));
}

bytes to_bytes(str const& data) {
    return {data.cbuffer(), data.cbuffer() + data.length()};
}

bool tag_fits(srtp_ctx const& context, byte_view authenticated, byte_view tag) {
    std::uint8_t expected[hmac<sha1>::mac_bytes];
    hmac<sha1> mac = context.rtcp_mac;
    mac.update(to_str(authenticated));
    mac.finish(expected);
    return std::equal(tag.begin(), tag.end(), expected);
}

}  // namespace

std::optional<bytes> open_srtcp(srtcp_key const& key, byte_view packet) {
    static bool const tables_ready = (aes_compute_tables(), true);
    std::size_t const trailer = key.mki.size() + tag_bytes;
    if (!tables_ready || key.material.size() != key_and_salt_bytes ||
        packet.size() < clear_bytes + index_bytes + trailer)
        return std::nullopt;
    srtp_ctx context;
    byte_view const material(key.material);
    srtp_init(context, to_str(material.first(master_key_bytes)), to_str(material.subspan(master_key_bytes)), str());
    byte_view const authenticated = packet.first(packet.size() - trailer);
    if (!tag_fits(context, authenticated, packet.last(tag_bytes)))
        return std::nullopt;
    std::uint32_t const word = str2uint32(to_str(authenticated.last(index_bytes)));
    if ((word & encrypted_flag) == 0)
        return bytes(authenticated.begin(), authenticated.end() - index_bytes);
    str plain;
    if ((word & ~encrypted_flag) > last_index ||
        !srtcp_unprotect(context, to_str(packet), plain, {srtcp_tag_bytes, to_str(key.mki)}))
        return std::nullopt;
    return to_bytes(plain);
}

}  // namespace rtcp_view
