// Messages as text, for protocol_test.py: how the C++ client writes commands and reads reports. One line in, one line
// out:
//
//   encode NAME FIELD=VALUE...   a command's bytes in hex, from the client; "no" when it refuses
//   decode HEX                   the reports in a datagram, as the client reads them
//   client VERB [ARGUMENT]       what the client then sends and tells, see scripted_client.h
//
// Values are decimal numbers; texts and bytes are x and hex; an address is x and hex, ":" and its port; codec and
// payload type are parted by "/".

#include <fxsmedia/commands.h>
#include <fxsmedia/reports.h>

#include <algorithm>
#include <deque>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <vector>

#include "tests/client/message_text.h"
#include "tests/client/scripted_client.h"

namespace {

using namespace protocol;
using text_fields = std::map<std::string, std::string>;
/// Fills a command of the client.
class from_text {
public:
    explicit from_text(text_fields const& given) : fields(given) {}

    template <class type>
    void operator()(field_format const& format, type& member) {
        if (auto const found = fields.find(format.name); found != fields.end())
            read(found->second, member);
    }

private:
    template <class type>
    void read(std::string const& text, std::optional<type>& member) {
        read(text, member.emplace());
    }
    void read(std::string const& text, int& number) { number = std::stoi(text); }
    void read(std::string const& text, bool& flag) { flag = text != "0"; }
    void read(std::string const& text, std::string_view& view) {
        view = kept.emplace_back(from_hex(std::string_view(text).substr(1)));
    }
    void read(std::string const& text, fxsmedia::byte_view& bytes) {
        std::string_view view;
        read(text, view);
        bytes = {reinterpret_cast<std::uint8_t const*>(view.data()), view.size()};
    }
    void read(std::string const& text, fxsmedia::endpoint& address) {
        std::string const ip = from_hex(text.substr(1, text.find(':') - 1));
        std::ranges::copy(ip, address.ip);
        address.ip_bytes = static_cast<std::uint8_t>(ip.size());
        address.port = static_cast<std::uint16_t>(std::stoi(text.substr(text.find(':') + 1)));
    }
    void read(std::string const& text, fxsmedia::codec_choice& one) {
        one = {std::stoi(text), std::stoi(text.substr(text.find('/') + 1))};
    }
    void read(std::string const& text, std::span<fxsmedia::codec_choice const>& map) {
        std::istringstream in(text);
        for (std::string one; std::getline(in, one, ',');)
            read(one, choices.emplace_back());
        map = choices;
    }

    text_fields const& fields;
    std::deque<std::string> kept;
    std::vector<fxsmedia::codec_choice> choices;
};

template <class command>
bool encode_as(std::string const& name, text_fields const& fields) {
    auto const* const format = std::ranges::find(command_formats, command::tag, &message_format::tag);
    if (format->name != name)
        return false;
    command one;
    from_text reader(fields);
    command::fields(one, reader);
    static std::uint8_t room[fxsmedia::largest_datagram_bytes];
    fxsmedia::datagram_writer writer(room);
    std::cout << (writer.append(one) ? hex(view(writer.datagram())) : "no");
    return true;
}

template <class... commands>
void encode(std::string const& name, text_fields const& fields) {
    if (!(encode_as<commands>(name, fields) || ...))
        std::cout << "no such command";
}

}  // namespace

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream in(line);
        std::string verb, subject;
        in >> verb >> subject;
        static std::unique_ptr<scripted_client> client;
        if (verb == "client") {
            std::string argument;
            in >> argument;
            if (subject == "start")
                client = std::make_unique<scripted_client>();
            std::cout << client->act(subject, argument) << std::endl;
            continue;
        }
        text_fields fields;
        for (std::string word; in >> word;)
            fields[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
        if (verb == "encode") {
            using namespace fxsmedia;
            encode<end_command, log_level_command, signal_command, dtmf_command, reset_base_command, play_command,
                   ntp_offset_command, tunnel_command, open_command, media_command, tdm_command, session_command,
                   dump_command, loopback_test_command, led_command>(subject, fields);
        } else {
            std::string const datagram = from_hex(std::string_view(subject).substr(1));
            fxsmedia::reports::read({reinterpret_cast<std::uint8_t const*>(datagram.data()), datagram.size()},
                                    [](auto const& one) { std::cout << text_of(one); });
        }
        std::cout << std::endl;
    }
}
