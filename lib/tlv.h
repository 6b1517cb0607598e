#pragma once

#include "lib/address.h"
#include "lib/str.h"

/// The control protocol's wire format, in both directions:
///
///     0       2          4
///     | tag   | length L | value, L bytes ...
///
/// Tag and length are unsigned 16-bit big-endian; no padding. The value of a message is itself a sequence of
/// such elements. This file knows the format, not the meaning of any tag.

/// Bytes in front of an element's value.
constexpr int tlv_header_bytes = 4;

/// Encoders. Only the low 16 bits of tags, lengths and short values are written; nothing checks that a value
/// fits.
str cmd_get_tlv_short(int tag, int value);
str cmd_get_tlv_long(int tag, int value);
str cmd_get_tlv_str(int tag, str const& value);
/// The value is the 16-bit number followed by the text.
str cmd_get_tlv_short_str(int tag, str const& text, int value);
/// An endpoint: 16-bit port followed by the address bytes (4, 16 or none).
str cmd_get_tlv_address(int tag, ip_port const& endpoint);

/// One element taken off a byte string.
struct tlv {
    int tag = 0;
    str value;

    /// Takes the first element off `data`. False, with `data` unchanged, while it is not complete.
    bool take(str& data);
    /// The value as an endpoint.
    ip_port get_address() const;
};
