#pragma once

#include "lib/str.h"
#include "lib/tlv.h"

/// Calls `act(tlv const&)` for each complete element of a command's value, in order; an incomplete last one is left
/// out.
template <typename action>
void for_each_field(str value, action const& act) {
    tlv field;
    while (field.take(value))
        act(field);
}

/// Call index when the command names none: no channel has it.
constexpr int no_call = 8;

/// Sub-tag that carries the call index in every command and reply.
constexpr int field_call = 4;
