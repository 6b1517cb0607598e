#include "tools/fxsctl/srtp_options.h"

#include <random>

#include "tools/fxsctl/argument_values.h"
#include "tools/fxsctl/failure.h"

namespace fxsctl {
namespace {

constexpr std::size_t key_and_salt_bytes = 30;  // RFC 3711 8.2: 128-bit master key, 112-bit master salt
constexpr std::uint8_t default_tag_bytes = 10;  // RFC 3711 8.2: 80-bit tag
constexpr int longest_tag_bytes = 20;           // all of HMAC-SHA1
constexpr std::size_t longest_mki_bytes = 128;  // RFC 4568 6.1

protocol::bytes random_key() {
    std::random_device source;
    protocol::bytes key(key_and_salt_bytes);
    for (std::uint8_t& byte : key)
        byte = static_cast<std::uint8_t>(source());
    return key;
}

}  // namespace

void add_srtp_options(CLI::App& sub, srtp_options& options) {
    sub.add_option(
        "--srtp-rx-key", options.rx_key,
        "Master key and salt for receiving: 30 bytes as 60 hexadecimal digits, or @FILE holding them");
    sub.add_option("--srtp-tx-key", options.tx_key, "The same for sending (and for RTCP in both directions)");
    sub.add_option("--srtp-tag", options.tag_bytes,
                   "Length of the authentication tag in bytes (default 10, 0: none)")
        ->check(CLI::Range(0, longest_tag_bytes));
    sub.add_option("--srtp-mki", options.mki, "Master key identifier in hexadecimal (default: none)");
}

void apply(srtp_options const& options, protocol::media_command& command) {
    bool const keyed = options.draw || !options.rx_key.empty() || !options.tx_key.empty();
    if (!keyed) {
        if (options.tag_bytes || !options.mki.empty())
            throw failure(exit_code::usage, "--srtp-tag and --srtp-mki need --srtp-rx-key or --srtp-tx-key");
        return;
    }
    if (!options.rx_key.empty())
        command.srtp_rx_key = secret_value("--srtp-rx-key", options.rx_key, key_and_salt_bytes);
    else if (options.draw)
        command.srtp_rx_key = random_key();
    if (!options.tx_key.empty())
        command.srtp_tx_key = secret_value("--srtp-tx-key", options.tx_key, key_and_salt_bytes);
    else if (options.draw)
        command.srtp_tx_key = random_key();
    command.srtp_tag_bytes = options.tag_bytes.value_or(default_tag_bytes);
    if (!options.mki.empty()) {
        command.srtp_mki = hex_value("--srtp-mki", options.mki);
        if (command.srtp_mki->size() > longest_mki_bytes)
            throw failure(exit_code::usage, "--srtp-mki: at most 128 bytes");
    }
}

}  // namespace fxsctl
