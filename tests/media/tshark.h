#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/stepped_lines.h"

/// An independent protocol analyser (Debian: tshark, which brings text2pcap).
namespace tshark {

/// Dissects RTCP compound packets. One line for each: the values of the fields, separated by "|", several of one
/// field by ",". The line ends with the complaint when the analyser has one. Throws when it cannot be run.
inline std::vector<std::string> rtcp_fields(std::vector<std::string> const& packets,
                                            std::vector<std::string> const& fields) {
    std::filesystem::path const directory = make_temporary_directory();
    std::string const text = directory / "packets.txt", capture = directory / "packets.pcap";
    std::ofstream dump(text);
    for (std::string const& packet : packets) {
        dump << "0000";
        for (std::size_t i = 0; i < packet.size(); i++)
            dump << ' ' << to_hex(packet.substr(i, 1));
        dump << "\n\n";
    }
    dump.close();
    std::string command = "text2pcap -q -F pcap -u 5005,5005 " + text + " " + capture + " && tshark -r " +
                          capture + " -d udp.port==5005,rtcp -T fields -E separator='|'";
    for (std::string const& field : fields)
        command += " -e " + field;
    command += " -e _ws.expert.message 2>" + std::string(directory / "errors");
    FILE* const output = popen(command.c_str(), "r");
    std::string all;
    char buffer[4096];
    for (std::size_t n; output && (n = fread(buffer, 1, sizeof buffer, output)) > 0;)
        all.append(buffer, n);
    bool const ran = output && pclose(output) == 0;
    std::filesystem::remove_all(directory);
    if (!ran)
        throw std::runtime_error("tshark and text2pcap are needed (scripts/install-packages test)");
    std::vector<std::string> lines;
    std::istringstream stream(all);
    for (std::string line; std::getline(stream, line);) {
        if (line.ends_with('|'))
            line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

}  // namespace tshark
