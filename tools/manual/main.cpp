// fxs_manual: copies docs/man/fxsmedia-protocol.7 from standard input to standard output with the tables written anew.
//     build/tools/manual/fxs_manual <docs/man/fxsmedia-protocol.7 >page

#include <iostream>
#include <string>

#include "lib/protocol.h"

namespace {

using protocol::value_kind;

constexpr char const* begin_mark = ".\\\" begin: tables of lib/protocol.h";
constexpr char const* end_mark = ".\\\" end: tables of lib/protocol.h";

char const* kind_name(value_kind kind) {
    switch (kind) {
        case value_kind::number: return "number";
        case value_kind::signed_number: return "signed";
        case value_kind::flag: return "flag";
        case value_kind::byte: return "byte";
        case value_kind::signed_long: return "long";
        case value_kind::text: return "text";
        case value_kind::data:
        case value_kind::secret: return "bytes";
        case value_kind::endpoint: return "address";
        case value_kind::codec_to_send: return "send";
        case value_kind::codec_to_map: return "map";
    }
    return "";
}

char const* group_name(protocol::media_group group) {
    switch (group) {
        case protocol::media_group::none: return "";
        case protocol::media_group::codec: return "codec";
        case protocol::media_group::destination: return "destination";
        case protocol::media_group::rtcp_xr: return "RTCP XR";
        case protocol::media_group::srtp: return "SRTP";
    }
    return "";
}

bool holds_number(value_kind kind) {
    return kind == value_kind::number || kind == value_kind::byte;
}

std::string range(protocol::field_format const& field) {
    if (!holds_number(field.kind))
        return "";
    return std::to_string(field.lowest) + " to " + std::to_string(field.highest);
}

std::string remarks(protocol::field_format const& field, bool command) {
    std::string text = group_name(field.group);
    auto const add = [&text](std::string const& remark) { text += (text.empty() ? "" : ", ") + remark; };
    if (field.triggers)
        text += "*";
    if (command && holds_number(field.kind))
        add(std::to_string(field.fallback) + " when absent");
    if (field.repeats)
        add("repeatable");
    if (field.optional)
        add("may be absent");
    return text;
}

void print_message(protocol::message_format const& message, bool command) {
    std::cout << ".SS \"" << message.tag << " " << message.name << "\"\n";
    if (message.fields.empty()) {
        std::cout << (message.plain_text ? "The value itself is the text.\n" : "No sub-fields.\n");
        return;
    }
    std::cout << ".TS\nr l l l l.\n";
    for (protocol::field_format const& field : message.fields)
        std::cout << field.tag << "\t" << field.name << "\t" << kind_name(field.kind) << "\t" << range(field) << "\t"
                  << remarks(field, command) << "\n";
    std::cout << ".TE\n";
}

void print_tables() {
    std::cout << ".SH COMMANDS\n";
    for (protocol::message_format const& message : protocol::command_formats)
        print_message(message, true);
    std::cout << ".SH REPORTS\n";
    for (protocol::message_format const& message : protocol::report_formats)
        print_message(message, false);
    std::cout << ".SH CODECS\nNumber, name, and the payload type that\n.BR fxsctl (1)\ntakes for it.\n.TS\nr l r.\n";
    for (protocol::codec_format const& codec : protocol::codec_formats)
        std::cout << codec.number << "\t" << codec.name << "\t" << codec.payload_type << "\n";
    std::cout << ".TE\n";
}

}  // namespace

int main() {
    bool kept = true;
    bool replaced = false;
    for (std::string line; std::getline(std::cin, line);) {
        kept = kept || line == end_mark;
        if (kept)
            std::cout << line << "\n";
        if (line != begin_mark)
            continue;
        print_tables();
        kept = false;
        replaced = true;
    }
    return kept && replaced ? 0 : 1;
}
