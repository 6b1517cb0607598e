// Commands against bytes written by hand: what the page of the protocol does not show.

#include <gtest/gtest.h>

#include "tools/protocol/codecs.h"
#include "tools/protocol/commands.h"
#include "tools/protocol/description.h"
#include "tools/protocol/tlv.h"

using namespace protocol;

namespace {

struct command_case {
    const char* what;
    bytes built;
    const char* hex;
};

TEST(builders, pinned_bytes) {
    media_command srtp_only;
    srtp_only.call = 3;
    srtp_only.srtp_tx_key = bytes{0xAA};
    srtp_only.srtp_mki = bytes{1, 2};
    media_command tcp;
    tcp.rtp_dest = parse_address("10.0.0.1:65535");
    tcp.tcp = true;
    tcp.xr_mode = "";
    media_command codecs_only;
    codecs_only.call = 0;
    codecs_only.map = {{2, 8}, {7, 101}};
    const command_case cases[] = {
        {"no call index at all", encode(end_command{}), "00040000"},
        {"open, every default", encode(open_command{}), "00100000"},
        {"tdm without a slot", encode(tdm_command{7, {}}), "00120006 000400020007"},
        {"several signals in order", encode(signal_command{{{1}, {}, {2, 3}}}),
         "0008000f 000f000101 000f0000 000f00020203"},
        {"highest 16-bit number", encode(led_command{65535}), "00160006 001b0002ffff"},
        {"offset above 16 bits", encode(ntp_offset_command{0x12345678}), "000d0008 0014000412345678"},
        {"tunnel to the media destination, RTCP side, TCP", encode(tunnel_command{1, {}, {}, {9}, true}),
         "000f0011 000400020001 000e000109 002200020001"},
        {"SRTP group alone", encode(srtp_only), "00110011 000400020003 00180001aa 001e00020102"},
        {"TCP flag, empty XR text", encode(tcp), "00110014 00050006ffff0a000001 002200020001 00150000"},
        {"map is codec, then payload type", encode(codecs_only),
         "00110012 000400020000 001000020208 001000020765"},
    };
    for (const command_case& one : cases) {
        EXPECT_EQ(to_hex(one.built), to_hex(from_hex(one.hex).value())) << one.what;
    }
}

TEST(builders, value_too_long_for_the_length_field_is_cut) {
    bytes out;
    append_tlv(out, 8, bytes(70000, 1));
    ASSERT_EQ(out.size(), 4U + 65535U);
    EXPECT_EQ(to_hex(byte_view(out).first(4)), "0008ffff");
    EXPECT_TRUE(split_tlvs(out).rest.empty());
}

TEST(addresses, text_and_bytes) {
    const struct {
        const char* text;
        const char* hex;  // empty: not an address
    } cases[] = {
        {"127.0.0.1:5004", "138c7f000001"},
        {"255.255.255.255:65535", "ffffffffffff"},
        {"[::1]:1", "000100000000000000000000000000000001"},
        {"[fe80::1]:5004", "138cfe800000000000000000000000000001"},
        {"127.0.0.1:0", ""},
        {"127.0.0.1:65536", ""},
        {"127.0.0.1", ""},
        {"127.0.0.1:", ""},
        {"127.0.0.1:50x", ""},
        {"127.0.0.300:5", ""},
        {"::1:5004", ""},  // needs brackets, or the last group would be taken for the port
        {"[127.0.0.1]:5", ""},
        {"localhost:5004", ""},
        {"", ""},
        {":", ""},
    };
    for (const auto& one : cases) {
        const std::optional<address> parsed = parse_address(one.text);
        EXPECT_EQ(parsed ? to_hex(encode_address(*parsed)) : "", one.hex) << one.text;
        if (parsed) {
            EXPECT_EQ(to_text(*parsed), one.text);
            EXPECT_EQ(decode_address(encode_address(*parsed)), parsed);
        }
    }
}

TEST(codec_names, names_aliases_numbers) {
    const struct {
        const char* text;
        int number;  // -1: none
    } cases[] = {{"pcma", 2}, {"PCMA", 2}, {"g711u", 1}, {"l16", 0}, {"G726-32", 6}, {"event", 7},
                 {"3", 3},    {"0", 0},    {"opus", -1}, {"8", -1},  {"", -1},       {"-1", -1}};
    for (const auto& one : cases) {
        const codec_info* found = find_codec(one.text);
        EXPECT_EQ(found != nullptr ? found->number : -1, one.number) << one.text;
    }
}

TEST(described_commands, keys_never_show) {
    media_command command;
    command.call = 1;
    command.srtp_rx_key = bytes(30, 0xAB);
    command.srtp_tx_key = bytes(30, 0xCD);
    const description described = describe_commands(encode(command)).at(0);
    EXPECT_EQ(described.fields.size(), 3U);
    for (const described_field& one : described.fields) {
        const std::string* text = std::get_if<std::string>(&one.value);
        EXPECT_TRUE(text == nullptr || text->find("abab") == std::string::npos) << one.name;
        EXPECT_TRUE(text == nullptr || text->find("cdcd") == std::string::npos) << one.name;
    }
}

}  // namespace
