// Prints client/python/fxsmedia/_table.py: lib/protocol.h as Python.
// usage: fxs_python_table >client/python/fxsmedia/_table.py

#include <cctype>
#include <iostream>
#include <string>

#include "lib/protocol.h"

namespace {

using protocol::value_kind;

struct kind_in_python {
    char const* name;
    char const* type;
};

kind_in_python in_python(value_kind kind) {
    switch (kind) {
        case value_kind::number: return {"NUMBER", "int"};
        case value_kind::signed_number: return {"SIGNED_NUMBER", "int"};
        case value_kind::flag: return {"FLAG", "bool"};
        case value_kind::byte: return {"BYTE", "int"};
        case value_kind::signed_long: return {"SIGNED_LONG", "int"};
        case value_kind::text: return {"TEXT", "str"};
        case value_kind::data: return {"DATA", "bytes"};
        case value_kind::secret: return {"SECRET", "bytes"};
        case value_kind::endpoint: return {"ENDPOINT", "Endpoint"};
        case value_kind::codec_to_send: return {"CODEC_TO_SEND", "Choice"};
        case value_kind::codec_to_map: return {"CODEC_TO_MAP", "Choice"};
    }
    return {};
}

/// "log-level" is LogLevel.
std::string class_name(std::string const& name) {
    std::string result;
    bool begins = true;
    for (char const c : name) {
        if (c != '-')
            result += begins ? static_cast<char>(std::toupper(c)) : c;
        begins = c == '-';
    }
    return result;
}

std::string quoted(std::string const& text) {
    return "\"" + text + "\"";
}

/// A word of Python gets an underscore.
std::string field_name(std::string const& name) {
    return name == "from" ? "from_" : name;
}

/// "0 to 7; 8 when absent", for numbers whose values the table bounds.
std::string explained(protocol::field_format const& field, bool command) {
    bool const is_number = field.kind == value_kind::number || field.kind == value_kind::byte;
    std::string text = is_number ? std::to_string(field.lowest) + " to " + std::to_string(field.highest) : "";
    if (command && is_number && !field.repeats)
        text += "; " + std::to_string(field.fallback) + " when absent";
    if (field.triggers)
        text += std::string(text.empty() ? "" : "; ") + "makes its group apply";
    return text;
}

void print_field(protocol::field_format const& field, bool command) {
    kind_in_python const kind = in_python(field.kind);
    std::string const type = kind.type;
    bool const required = !command && !field.optional;
    std::string const comment = explained(field, command);
    std::cout << "    " << field_name(field.name) << ": "
              << (field.repeats ? type + " | Sequence[" + type + "]"
                  : required    ? type
                                : type + " | None")
              << " = field(" << field.tag << ", Kind." << kind.name << (field.repeats ? ", repeats=True" : "")
              << (required ? ", required=True" : "") << ")" << (comment.empty() ? "" : "  # " + comment) << "\n";
}

void print_message(protocol::message_format const& message, bool command) {
    std::string const direction = command ? "Command" : "Report";
    std::cout << "\n\n@dataclass(frozen=True, kw_only=True)\nclass " << class_name(message.name) << direction << "("
              << direction << "):\n    \"\"\"" << direction << " " << message.tag << ", " << message.name
              << ".\"\"\"\n\n    TAG = " << message.tag << "\n    NAME = " << quoted(message.name) << "\n";
    if (message.plain_text)
        std::cout << "    PLAIN_TEXT = True\n    text: str = field(0, Kind.TEXT, required=True)\n";
    for (protocol::field_format const& field : message.fields)
        print_field(field, command);
}

void print_messages(std::span<protocol::message_format const> messages, bool command) {
    for (protocol::message_format const& message : messages)
        print_message(message, command);
}

void print_index(std::span<protocol::message_format const> messages, std::string const& direction) {
    std::cout << "\n" << (direction == "Command" ? "\nCOMMANDS" : "REPORTS") << " = {\n";
    for (protocol::message_format const& message : messages)
        std::cout << "    " << message.tag << ": " << class_name(message.name) << direction << ",\n";
    std::cout << "}\n";
}

}  // namespace

int main() {
    std::cout << "\"\"\"Commands and reports of the control protocol, as lib/protocol.h has them.\n\n"
                 "docs/control-protocol.md says what they do. Printed by fxs_python_table: do not edit.\n\"\"\"\n\n"
                 "from collections.abc import Sequence\nfrom dataclasses import dataclass\n\n"
                 "from ._wire import Choice, Command, Endpoint, Kind, Report, field\n\n"
              << "CALL_COUNT = " << protocol::call_count << "\nNO_CALL = " << protocol::no_call
              << "\n\n# Name of each codec: number, usual RTP payload type.\nCODECS = {\n";
    for (protocol::codec_format const& codec : protocol::codec_formats)
        std::cout << "    " << quoted(codec.name) << ": Choice(" << codec.number << ", " << codec.payload_type
                  << "),\n";
    std::cout << "}\n";
    print_messages(protocol::command_formats, true);
    print_messages(protocol::report_formats, false);
    print_index(protocol::command_formats, "Command");
    print_index(protocol::report_formats, "Report");
    std::cout << "\n__all__ = [\"CALL_COUNT\", \"NO_CALL\", \"CODECS\", \"COMMANDS\", \"REPORTS\"]\n"
                 "__all__ += [message.__name__ for message in (*COMMANDS.values(), *REPORTS.values())]\n";
}
