#include "tools/fxsline/pipe_script.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "tools/protocol/bytes.h"

namespace fxsline {

namespace {

constexpr uint64_t longest_ms = 86400000;
constexpr std::string_view line_end = "\r\n";

/// The bytes that `text` stands for, or nullopt where a backslash stands before something unknown.
std::optional<std::string> unescaped(std::string_view text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        char const kind = ++i < text.size() ? text[i] : '\0';
        if (kind == 'c' && i + 1 == text.size())
            return bytes;
        if (kind == 'r' || kind == 'n' || kind == '\\') {
            bytes += kind == 'r' ? '\r' : kind == 'n' ? '\n' : '\\';
            continue;
        }
        auto const byte = kind == 'x' ? protocol::from_hex(text.substr(i + 1, 2)) : std::nullopt;
        if (!byte || byte->size() != 1)
            return std::nullopt;
        bytes += static_cast<char>(byte->front());
        i += 2;
    }
    return bytes.append(line_end);
}

std::optional<scripted_text> parse_row(std::string_view row) {
    uint64_t time_ms = 0;
    auto const [end, error] = std::from_chars(row.data(), row.data() + row.size(), time_ms);
    auto const text = row.substr(static_cast<size_t>(end - row.data()));
    if (error != std::errc() || time_ms > longest_ms || !text.starts_with(' '))
        return std::nullopt;
    auto bytes = unescaped(text.substr(1));
    return bytes ? std::optional(scripted_text{time_ms, std::move(*bytes)}) : std::nullopt;
}

}  // namespace

outcome<pipe_script> parse_pipe_script(std::string_view rows) {
    pipe_script script;
    for (unsigned number = 1; !rows.empty(); number++) {
        size_t const end = std::min(rows.find('\n'), rows.size());
        std::string_view row = rows.substr(0, end);
        rows.remove_prefix(std::min(end + 1, rows.size()));
        if (row.ends_with('\r'))
            row.remove_suffix(1);
        if (row.empty() || row.starts_with('#'))
            continue;
        auto parsed = parse_row(row);
        if (!parsed) {
            return outcome<pipe_script>::failed("row " + std::to_string(number) +
                                                " is not 'MS TEXT': " + std::string(row));
        }
        script.push_back(std::move(*parsed));
    }
    return {std::move(script), {}};
}

pipe_script hook_changes(unsigned line, std::vector<unsigned> const& times_ms) {
    pipe_script script;
    for (size_t i = 0; i < times_ms.size(); i++) {
        std::string const text = (i % 2 == 0 ? "off-hook " : "on-hook ") + std::to_string(line);
        script.push_back({times_ms[i], text + std::string(line_end)});
    }
    return script;
}

pipe_script key_presses(unsigned line, std::string_view keys, unsigned first_ms) {
    constexpr uint64_t period_ms = 200;  // of somebody who dials quickly
    pipe_script script;
    for (size_t i = 0; i < keys.size(); i++)
        script.push_back(
            {first_ms + i * period_ms, "key " + std::to_string(line) + " " + keys[i] + std::string(line_end)});
    return script;
}

}  // namespace fxsline
