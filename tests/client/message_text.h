#pragma once

#include <fxsmedia/reports.h>

#include <algorithm>
#include <string>

#include "tests/support/bytes.h"

/// Messages as words.cpp prints them.

inline std::string hex(std::string_view bytes) {
    std::string text = to_hex(bytes);
    std::ranges::transform(text, text.begin(), [](char c) { return static_cast<char>(c | 0x20); });
    return "x" + text;
}

inline std::string_view view(fxsmedia::byte_view bytes) {
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

/// Collects the fields of a report.
struct to_text {
    std::string text;

    template <class type>
    void operator()(protocol::field_format const& format, std::optional<type> const& member) {
        if (member)
            (*this)(format, *member);
    }
    void operator()(protocol::field_format const& format, int number) { add(format, std::to_string(number)); }
    void operator()(protocol::field_format const& format, bool flag) { add(format, flag ? "1" : "0"); }
    void operator()(protocol::field_format const& format, std::string_view bytes) { add(format, hex(bytes)); }
    void operator()(protocol::field_format const& format, fxsmedia::byte_view bytes) { add(format, hex(view(bytes))); }
    void operator()(protocol::field_format const& format, fxsmedia::endpoint const& from) {
        add(format, hex(view({from.ip, from.ip_bytes})) + ":" + std::to_string(from.port));
    }
    void add(protocol::field_format const& format, std::string const& value) {
        text += " " + std::string(format.name) + "=" + value;
    }
};

template <class report>
std::string text_of(report const& one) {
    to_text all{std::ranges::find(protocol::report_formats, report::tag, &protocol::message_format::tag)->name};
    report::fields(one, all);
    if constexpr (report::tag == protocol::report_driver_line::tag)
        all.text += " text=" + hex(one.text);
    return all.text + " ";
}
inline std::string text_of(fxsmedia::undecodable const& bytes) {
    return "fault " + std::to_string(static_cast<int>(bytes.why.what)) + " " + std::to_string(bytes.why.field) + " " +
           hex(view(bytes.data)) + " ";
}
