#pragma once

#include <string>

#include "phone/telephone.h"

namespace fxsphone {

/// What the lines do, as a JSON object; docs/phone.md names its fields.
std::string status_of(telephone_list const& telephones, bool process_connected, std::int64_t now_ms);

}  // namespace fxsphone
