#include "tools/protocol/worked_datagrams.h"

#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace protocol {
namespace {

constexpr std::string_view fence = "```";
constexpr std::string_view opening = "```hex ";

/// Reads the words after "```hex ". false when the direction or an attribute is not understood.
bool read_heading(std::string const& words, worked_datagram& datagram) {
    std::istringstream in(words);
    std::string direction;
    std::string attribute;
    in >> datagram.name >> direction;
    datagram.is_command = direction == "command";
    while (in >> attribute) {
        bool const is_reply = attribute.starts_with("reply=");
        if (!is_reply && !attribute.starts_with("needs="))
            return false;
        (is_reply ? datagram.reply : datagram.needs) = attribute.substr(6);
    }
    return datagram.is_command || direction == "report";
}

bool append_line(std::string const& line, worked_datagram& datagram) {
    std::istringstream in(line.substr(0, line.find('#')));
    std::string pair;
    while (in >> pair) {
        bool const any = pair == "??";
        std::optional<bytes> const byte = any ? bytes{0} : from_hex(pair);
        if (!byte || byte->size() != 1)
            return false;
        datagram.data.push_back(byte->front());
        datagram.any_byte.push_back(any);
    }
    return true;
}

}  // namespace

bool worked_datagram::matches(byte_view datagram) const {
    if (datagram.size() != data.size())
        return false;
    for (std::size_t i = 0; i < data.size(); ++i)
        if (!any_byte[i] && data[i] != datagram[i])
            return false;
    return true;
}

std::vector<worked_datagram> load_worked_datagrams(std::string const& path) {
    std::ifstream in(path);
    std::vector<worked_datagram> datagrams;
    std::optional<worked_datagram> open;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        bool sound = true;
        if (open && line.starts_with(fence)) {
            sound = !open->data.empty();
            datagrams.push_back(*open);
            open.reset();
        } else if (open) {
            sound = append_line(line, *open);
        } else if (line.starts_with(opening)) {
            open.emplace();
            sound = read_heading(line.substr(opening.size()), *open);
        }
        if (!sound)
            throw std::runtime_error(path + ":" + std::to_string(number) + ": malformed worked datagram");
    }
    if (datagrams.empty() || open)
        throw std::runtime_error(path + ": no worked datagrams, or one without an end");
    return datagrams;
}

}  // namespace protocol
