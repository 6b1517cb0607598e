#include "tools/protocol/quoted.h"

#include <array>

#include "tools/protocol/hex.h"

namespace protocol {
namespace {

std::string printable(std::string const& text) {
    std::string safe;
    for (char const c : text) {
        auto const byte = static_cast<std::uint8_t>(c);
        if (byte < 0x20 || byte >= 0x7F)
            safe += "\\x" + to_hex(std::array{byte});
        else if (c == '"' || c == '\\')
            safe += std::string("\\") + c;
        else
            safe += c;
    }
    return safe;
}

}  // namespace

std::string quoted(std::string const& text) {
    std::string const safe = printable(text);
    bool const plain = safe == text && !safe.empty() && safe.find_first_of(" =") == std::string::npos;
    return plain ? safe : "\"" + safe + "\"";
}

}  // namespace protocol
