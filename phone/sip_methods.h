#pragma once

namespace fxsphone {

/// What can be sent to us (RFC 3261 section 20.5), as a header field with its line end.
inline constexpr char const* allowed_methods = "Allow: INVITE,ACK,BYE,CANCEL,OPTIONS,REFER,NOTIFY,INFO,UPDATE\r\n";

}  // namespace fxsphone
