// What the tables of docs/control-protocol.md tell is what lib/protocol.h holds.

#include "lib/protocol.h"

#include <fstream>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string kind_name(protocol::value_kind kind) {
    switch (kind) {
        case protocol::value_kind::number:
        case protocol::value_kind::signed_number:
        case protocol::value_kind::flag: return "short";
        case protocol::value_kind::byte: return "1 byte";
        case protocol::value_kind::signed_long: return "long, two's complement";
        case protocol::value_kind::endpoint: return "address";
        case protocol::value_kind::codec_to_send:
        case protocol::value_kind::codec_to_map: return "2 bytes";
        default: return "bytes";
    }
}

/// A command's field as "17: 11 * short = 20", a report as "report 14: 4 22 9 10".
std::set<std::string> header() {
    std::set<std::string> all;
    for (auto const& message : protocol::command_formats)
        for (auto const& field : message.fields)
            all.insert(std::to_string(message.tag) + ": " + std::to_string(field.tag) + (field.triggers ? " * " : " ") +
                       kind_name(field.kind) + (field.repeats ? ", repeatable" : "") +
                       (field.fallback != 0 ? " = " + std::to_string(field.fallback) : ""));
    for (auto const& message : protocol::report_formats) {
        std::string fields;
        for (auto const& field : message.fields)
            fields += " " + std::to_string(field.tag);
        all.insert("report " + std::to_string(message.tag) + ":" + fields);
    }
    return all;
}

std::set<std::string> manual() {
    std::regex const command(R"(### (\d+), .*)"), number(R"((^|, |then |or )(\d+) )"),
        bytes("^(4 bytes|30 bytes|text)$"),
        field_row(R"(\| (?:[A-Za-z ]*\| )?(\d+(?: \*)?) \| ([^|]+) \| (?:([1-9]\d*) |[^|]*)\| [^|]+ \|)"),
        report_row(R"(\| (\d+) \| [^|]+ \| ([^|]+) \|)");
    std::ifstream file(FXSMEDIA_SOURCE "/docs/control-protocol.md");
    std::set<std::string> all;
    std::smatch match;
    std::string section;
    for (std::string line; std::getline(file, line);) {
        if (std::regex_match(line, match, command)) {
            section = match[1];
        } else if (line.starts_with("## ")) {
            section = line == "## Reports" ? "report" : "";
        } else if (section == "report" && std::regex_match(line, match, report_row)) {
            std::string const what = match[2];
            std::string fields;
            for (std::sregex_iterator n(what.begin(), what.end(), number), end; n != end; ++n)
                fields += " " + (*n)[2].str();
            all.insert("report " + match[1].str() + ":" + fields);
        } else if (!section.empty() && std::regex_match(line, match, field_row)) {
            all.insert(section + ": " + match[1].str() + " " + std::regex_replace(match[2].str(), bytes, "bytes") +
                       (match[3].matched ? " = " + match[3].str() : ""));
        }
    }
    return all;
}

TEST(protocol, is_what_the_manual_says) {
    EXPECT_EQ(header(), manual());
}

}  // namespace
