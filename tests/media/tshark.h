#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/stepped_lines.h"

/// An independent protocol analyser (Debian: tshark, which brings text2pcap).
namespace tshark {

/// Dissects RTCP compound packets. One line for each: the values of the fields, separated by "|", several of one
/// field by ",", at last the complaint when the analyser has one. Throws when it cannot be run.
inline std::string rtcp_fields(std::vector<std::string> const& packets, std::string const& fields) {
    std::filesystem::path const directory = make_temporary_directory();
    std::ofstream dump(directory / "packets.txt");
    for (std::string const& packet : packets) {
        dump << "0000";
        for (char const byte : packet)
            dump << ' ' << to_hex({&byte, 1});
        dump << "\n\n";
    }
    dump.close();
    std::string const command = "cd " + directory.string() +
                                " && text2pcap -q -F pcap -u 5005,5005 packets.txt packets.pcap && "
                                "tshark -r packets.pcap -d udp.port==5005,rtcp -T fields -E separator='|' " +
                                fields + " -e _ws.expert.message 2>errors";
    FILE* const output = popen(command.c_str(), "r");
    std::string lines(65536, 0);
    lines.resize(output ? fread(lines.data(), 1, lines.size(), output) : 0);
    bool const ran = output && pclose(output) == 0;
    std::filesystem::remove_all(directory);
    if (!ran)
        throw std::runtime_error("tshark and text2pcap are needed (scripts/install-packages test)");
    return lines;
}

}  // namespace tshark
