#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/fxsheard/comparison.h"

namespace {

constexpr int exit_alike = 0;
constexpr int exit_unlike = 1;
constexpr int exit_unusable = 2;

void print_text(comparison const& c) {
    std::printf(
        "%sdelay %.1f ms, level %+.1f dB (said %.1f dBFS, heard %.1f dBFS), similarity %.3f%s%s\n",
        c.unsure ? "unsure: " : "", c.delay_ms, c.level_db, c.said_dbfs, c.heard_dbfs, c.similarity,
        c.inverted ? ", inverted (upside down; each way through this system's G.711 turns it, nobody hears it)" : "",
        c.unsure ? "; another delay fits nearly as well, or nothing does" : "");
}

void print_json(comparison const& c) {
    nlohmann::json const line{{"delay_ms", c.delay_ms},     {"level_db", c.level_db},     {"said_dbfs", c.said_dbfs},
                              {"heard_dbfs", c.heard_dbfs}, {"similarity", c.similarity}, {"inverted", c.inverted},
                              {"unsure", c.unsure}};
    std::printf("%s\n", line.dump().c_str());
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Compares what one telephone said with what another heard: delay from mouth to ear, level, "
        "similarity.");
    app.footer(
        "Both recordings start at the same moment (fxsline --said and --hear do). Exit status: 0 alike, 1 "
        "not alike,\n"
        "2 unusable files or arguments.");
    app.set_version_flag("--version", "fxsheard " FXSMEDIA_VERSION);
    std::string said;
    std::string heard;
    int longest_delay_ms = 3000;
    double least_similarity = 0.5;
    bool json = false;
    app.add_option("SAID", said, "WAV file, 8 kHz mono")->required()->check(CLI::ExistingFile);
    app.add_option("HEARD", heard, "WAV file, 8 kHz mono")->required()->check(CLI::ExistingFile);
    app.add_option("--longest-delay", longest_delay_ms, "Largest delay looked for, in ms, both ways")
        ->capture_default_str()
        ->check(CLI::Range(0, 60000));
    app.add_option("--least", least_similarity, "Similarity below which the files are not alike")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1.0));
    app.add_flag("-j,--json", json, "Print one JSON object");
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? exit_alike : exit_unusable;
    }
    try {
        comparison const result = compare(read_wav(said), read_wav(heard), longest_delay_ms, -longest_delay_ms);
        json ? print_json(result) : print_text(result);
        return result.similarity >= least_similarity ? exit_alike : exit_unlike;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "fxsheard: %s\n", error.what());
        return exit_unusable;
    }
}
