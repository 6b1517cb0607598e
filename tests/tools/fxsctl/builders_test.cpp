// Commands against bytes written by hand: what neither the page of the protocol nor fxsctl's command line shows.

#include <gtest/gtest.h>

#include "tools/protocol/codecs.h"
#include "tools/protocol/commands.h"
#include "tools/protocol/tlv.h"

using namespace protocol;

namespace {

TEST(builders, pinned_bytes) {
    media_command empty_xr;
    empty_xr.tcp = true;
    empty_xr.rtp_dest = parse_address("10.0.0.1:65535");
    empty_xr.xr_mode = "";
    std::pair<bytes, char const*> const cases[] = {
        {encode(end_command{}), "00040000"},  // no call index at all
        {encode(open_command{}), "00100000"},
        {encode(tdm_command{7, {}}), "00120006000400020007"},
        {encode(signal_command{{{1}, {}, {2, 3}}}), "0008000f000f000101000f0000000f00020203"},
        {encode(empty_xr), "0011001400050006ffff0a00000100220002000100150000"},
    };
    for (auto const& [built, hex] : cases)
        EXPECT_EQ(to_hex(built), hex);
    bytes longest;
    append_tlv(longest, 8, bytes(70000, 1));
    ASSERT_EQ(longest.size(), 4U + 65535U) << "cut to what the length field can say";
    EXPECT_EQ(to_hex(byte_view(longest).first(4)), "0008ffff");
    EXPECT_TRUE(split_tlvs(longest).rest.empty());
}

TEST(addresses, text_and_bytes) {
    std::pair<char const*, char const*> const cases[] = {
        {"127.0.0.1:5004", "138c7f000001"},
        {"255.255.255.255:65535", "ffffffffffff"},
        {"[::1]:1", "000100000000000000000000000000000001"},
        {"[fe80::1]:5004", "138cfe800000000000000000000000000001"},
    };
    for (auto const& [text, hex] : cases) {
        std::optional<address> const parsed = parse_address(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_EQ(to_hex(encode_address(*parsed)), hex);
        EXPECT_EQ(to_text(*parsed), text);
        EXPECT_EQ(decode_address(encode_address(*parsed)), parsed);
    }
    // Without brackets the last group of IPv6 would be taken for the port.
    for (char const* wrong : {"127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1", "127.0.0.1:", "127.0.0.1:50x",
                              "127.0.0.300:5", "::1:5004", "[127.0.0.1]:5", "localhost:5004", "", ":"})
        EXPECT_FALSE(parse_address(wrong)) << wrong;
}

TEST(codec_names, names_aliases_numbers) {
    std::pair<char const*, int> const cases[] = {{"pcma", 2},    {"PCMA", 2},  {"g711u", 1}, {"l16", 0},
                                                 {"G726-32", 6}, {"event", 7}, {"3", 3},     {"0", 0}};
    for (auto const& [text, number] : cases)
        EXPECT_TRUE(find_codec(text) != nullptr && find_codec(text)->number == number) << text;
    for (char const* unknown : {"opus", "8", "", "-1"})
        EXPECT_EQ(find_codec(unknown), nullptr) << unknown;
}

}  // namespace
