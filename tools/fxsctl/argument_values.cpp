#include "tools/fxsctl/argument_values.h"

#include <charconv>
#include <fstream>
#include <iterator>

#include "lib/protocol.h"
#include "tools/fxsctl/settings.h"

namespace fxsctl {
namespace {

[[noreturn]] void reject(std::string const& option, std::string const& text, std::string const& expected) {
    throw failure(exit_code::usage, option + ": \"" + text + "\" is not " + expected);
}

std::string file_text(std::string const& option, std::string const& path) {
    std::ifstream in(path);
    if (!in)
        throw failure(exit_code::local, option + ": cannot read the file " + path);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

CLI::Range call_index() {
    return {0, protocol::call_count - 1};
}

CLI::Range line_index() {
    return {0, protocol::slot_count - 1};
}

CLI::Range short_number() {
    return {0, 65535};
}

CLI::Range payload_type() {
    return {0, 127};
}

protocol::address address_value(std::string const& option, std::string const& text) {
    auto const value = protocol::parse_address(text);
    if (!value) {
        reject(option, text, "an address like 192.0.2.1:5004 or [2001:db8::1]:5004 (no host names, port 1 to 65535)");
    }
    return *value;
}

std::optional<protocol::address> rtcp_beside(protocol::address const& rtp) {
    if (rtp.port == 65535)
        return std::nullopt;
    return protocol::address{rtp.ip, static_cast<std::uint16_t>(rtp.port + 1)};
}

protocol::bytes ip_value(std::string const& option, std::string const& text) {
    auto const value = protocol::parse_ip(text);
    if (!value)
        reject(option, text, "an IPv4 or IPv6 address");
    return *value;
}

protocol::bytes hex_value(std::string const& option, std::string const& text) {
    auto const value = protocol::from_hex(text);
    if (!value || value->empty())
        reject(option, text, "hexadecimal (an even number of digits, at least two)");
    return *value;
}

protocol::bytes secret_value(std::string const& option, std::string const& text, std::size_t length) {
    bool const in_file = text.starts_with('@');
    auto const value = protocol::from_hex(in_file ? file_text(option, text.substr(1)) : text);
    if (!value || value->size() != length) {
        std::string const found = value ? std::to_string(value->size()) + " bytes were given" : "the text is no hex";
        throw failure(exit_code::usage, option + ": " + std::to_string(length) + " bytes as " +
                                            std::to_string(2 * length) + " hexadecimal digits are needed, " + found);
    }
    return *value;
}

protocol::codec_format const& codec_value(std::string const& option, std::string const& text) {
    protocol::codec_format const* codec = protocol::find_codec(text);
    if (codec == nullptr) {
        std::string names;
        for (protocol::codec_format const& known : protocol::codec_formats)
            names += (names.empty() ? "" : ", ") + std::string(known.name);
        reject(option, text, "a codec: " + names + ", or a number 0 to 7");
    }
    return *codec;
}

protocol::codec_choice map_entry_value(std::string const& option, std::string const& text) {
    std::size_t const equals = text.find('=');
    std::string const number = text.substr(0, equals);
    protocol::codec_choice entry;
    auto const [end, error] = std::from_chars(number.data(), number.data() + number.size(), entry.payload_type);
    bool const is_number = error == std::errc() && end == number.data() + number.size();
    if (equals == std::string::npos || !is_number || entry.payload_type > 127)
        reject(option, text, "PT=CODEC with a payload type of 0 to 127, e.g. 8=pcma");
    entry.codec = static_cast<std::uint8_t>(codec_value(option, text.substr(equals + 1)).number);
    return entry;
}

}  // namespace fxsctl
