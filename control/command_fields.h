#pragma once

#include "lib/address.h"
#include "lib/protocol.h"
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

/// The sub-fields of one command, asked for by their entries in the protocol's table. Of a sub-field that stands
/// several times the last one is given; lengths are not checked: missing bytes are zero, more are not read.
class command_fields {
public:
    explicit command_fields(str const& command_value) : value(command_value) {}

    bool has(int tag) const { return last(tag).tag == tag; }
    /// Unsigned 16 bits; the fallback of the table when absent.
    int number(protocol::field_format const& field) const { return number(field.tag, field.fallback); }
    /// The same of the first one.
    int first_number(protocol::field_format const& field) const { return first_number(field.tag, field.fallback); }
    /// The first byte; 0 when absent.
    int byte(int tag) const { return bytes(tag)[0]; }
    /// Empty when absent.
    str bytes(int tag) const { return last(tag).value; }
    /// The same of a key; it is then gone from the command.
    str secret(int tag) const;
    /// Empty when absent.
    ip_port endpoint(int tag) const { return last(tag).get_address(); }

    /// Calls `act(str const& value)` for each sub-field of this kind.
    template <typename action>
    void each(int tag, action const& act) const {
        for_each_field(value, [&](tlv const& field) {
            if (field.tag == tag)
                act(field.value);
        });
    }
    /// Calls `act(tlv const&)` for each sub-field of any kind.
    template <typename action>
    void each(action const& act) const {
        for_each_field(value, act);
    }

private:
    /// With tag -1 and an empty value when absent.
    tlv last(int tag) const;
    int number(int tag, int fallback) const;
    int first_number(int tag, int fallback) const;

    str value;
};
