#pragma once

#include <string_view>

#include "lib/protocol.h"
#include "tools/protocol/commands.h"

namespace protocol {

/// The codec that people call so: by name (either case; "g711a", "g711u" and "event" work too) or by number "0" to "7".
/// nullptr when there is none.
codec_format const* find_codec(std::string_view name_or_number);

/// The codec with the payload type that it usually has.
codec_choice usual_choice(codec_format const& codec);

}  // namespace protocol
