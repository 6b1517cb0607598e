#include "control/command_fields.h"

tlv command_fields::last(int tag) const {
    tlv found{-1, str::null};
    each([&](tlv const& field) {
        if (field.tag == tag)
            found = field;
    });
    return found;
}

str command_fields::secret(int tag) const {
    str found;
    each(tag, [&](str const& given) {
        str shared = given;
        found = shared.take_secret();
    });
    return found;
}

int command_fields::number(int tag, int fallback) const {
    tlv const found = last(tag);
    return found.tag == tag ? str2int16(found.value) : fallback;
}

int command_fields::first_number(int tag, int fallback) const {
    str rest = value;
    for (tlv field; field.take(rest);)
        if (field.tag == tag)
            return str2int16(field.value);
    return fallback;
}
