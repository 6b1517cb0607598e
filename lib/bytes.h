#pragma once

#include "lib/str.h"

/// Small helpers on byte strings: hex text, big-endian integers, the parts of a textual message.
namespace utils {

/// Two hex digits per byte, upper or lower case; empty for empty input.
str bin2hex(str const& data, bool upper);
/// The low n bytes of value, most significant first.
str int2str(unsigned value, int n);
/// All bytes accumulated big-endian into 32 bits; longer input keeps only its last four bytes.
int str2int(str const& data);

/// Leading bytes that are blank, tab, CR, LF or NUL.
int get_leading_whitespace(str const& data);
/// Index where a textual message's body starts: behind the first CR LF CR LF, or behind a CR CR or LF LF that
/// comes first; the length when there is none.
int get_body_pos(str const& message);
/// What stands before that index.
str get_header(str const& message);
/// What stands from that index on, without leading white space.
str get_body(str const& message);

/// Names of the record that holds a body's length, for str::get_record_content.
extern str content_length;          ///< "content-length"
extern str compact_content_length;  ///< "l"

}  // namespace utils
