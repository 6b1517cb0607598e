#include <ctime>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/fxsctl/media_options.h"
#include "tools/fxsctl/output.h"
#include "tools/fxsctl/settings.h"
#include "tools/fxsctl/subcommands.h"
#include "tools/protocol/codecs.h"

namespace fxsctl {
namespace {

using nlohmann::json;

struct quality_options {
    std::string file = "-";
    srtp_options srtp;
};

/// "2024-05-01T12:00:00.123Z" as milliseconds since 1970; 0 for anything else.
std::int64_t time_of(std::string const& text) {
    std::tm utc{};
    char const* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    if (rest == nullptr)
        return 0;
    double const fraction_s = std::strtod(rest, nullptr);
    return std::int64_t{timegm(&utc)} * 1000 + static_cast<std::int64_t>(fraction_s * 1000 + 0.5);
}

protocol::rtcp_copy copy_from(json const& line) {
    // What the monitor decrypted needs no key any more.
    std::string const hex = line.value("plain", line.at("data").get<std::string>());
    return {line.at("call").get<std::uint16_t>(), line.at("call_id").get<std::string>(),
            line.at("direction").get<std::string>() == "received", protocol::from_hex(hex).value_or(protocol::bytes())};
}

class line_reader {
public:
    explicit line_reader(rtcp_reader const& with) : reader(with) {}

    /// false: the line is not one of a monitor.
    bool take(std::string const& text) {
        try {
            json const line = json::parse(text);
            std::string const report = line.value("report", "");
            if (line.value("command", "") == "media" && line.contains("send"))
                note_codec(line);
            if (report == "open") {
                quality.call_opened(line.at("call").get<unsigned>());
            } else if (report == "rtcp") {
                protocol::rtcp_copy const copy = copy_from(line);
                quality.add(observation(copy, reader.read(copy), time_of(line.value("time", ""))));
            }
            return true;
        } catch (json::exception const&) {
            return false;
        }
    }

    rtcp_view::quality_tracker const& tracker() const { return quality; }

private:
    /// "8=pcma".
    void note_codec(json const& line) {
        std::string const send = line.at("send").get<std::string>();
        if (auto const* codec = protocol::find_codec(send.substr(send.find('=') + 1)))
            quality.codec_chosen(line.at("call").get<unsigned>(), codec->number);
    }

    rtcp_reader const& reader;
    rtcp_view::quality_tracker quality;
};

void run_quality(quality_options const& options, settings const& global) {
    protocol::media_command keys;
    apply(options.srtp, keys);
    rtcp_reader reader;
    reader.use(keys);
    std::ifstream file;
    if (options.file != "-") {
        file.open(options.file);
        if (!file)
            throw failure(exit_code::local, "cannot read the file " + options.file);
    }
    line_reader lines(reader);
    std::size_t skipped = 0;
    for (std::string line; std::getline(options.file == "-" ? std::cin : file, line);)
        skipped += lines.take(line) ? 0 : 1;
    if (skipped != 0)
        std::cerr << "fxsctl: skipped " << skipped << " lines that are not a monitor's" << std::endl;
    print_quality(global, lines.tracker());
}

}  // namespace

void add_quality(CLI::App& app, program& p) {
    auto options = std::make_shared<quality_options>();
    CLI::App* sub =
        add_command(app, p, "quality", "Sum up the calls in the output of `fxsctl --json monitor`; needs no process",
                    [options](settings const& global) { run_quality(*options, global); });
    sub->add_option("file", options->file, "The monitor's lines (default \"-\": standard input)");
    add_srtp_options(*sub, options->srtp);
}

}  // namespace fxsctl
