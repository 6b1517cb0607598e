#include "phone/libre.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "phone/adapter.h"
#include "phone/configuration.h"

namespace {

constexpr int exit_bad_configuration = 1;
constexpr int exit_no_network = 2;

fxsphone::adapter* running = nullptr;

void end(int) {
    running->stop();
}

int serve(fxsphone::phone_settings const& settings, bool trace) {
    if (libre_init() != 0)
        return exit_no_network;
    int code = 0;
    {
        auto const telephones = std::make_unique<fxsphone::adapter>(settings, trace);
        running = telephones.get();
        std::string const problem = telephones->start();
        if (problem.empty()) {
            re_main(end);
        } else {
            std::fprintf(stderr, "fxsphone: %s\n", problem.c_str());
            code = exit_no_network;
        }
    }
    libre_close();
    return code;
}

int print_status(std::string const& socket) {
    std::string const text = socket.empty() ? "" : fxsphone::ask_status(socket);
    if (text.empty()) {
        std::fprintf(
            stderr, "fxsphone: %s\n",
            socket.empty() ? "the configuration has no [status] socket" : "nobody answers at the status socket");
        return exit_no_network;
    }
    std::fputs(text.c_str(), stdout);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Makes every line of fxsmedia a SIP telephone.", "fxsphone");
    app.set_version_flag("--version", "fxsphone " FXSMEDIA_VERSION);
    std::string file;
    bool check = false;
    bool trace = false;
    bool status = false;
    app.add_option("CONFIGURATION", file, "TOML file")->required()->check(CLI::ExistingFile);
    app.add_flag("--check", check, "Say what is wrong with the configuration, and end");
    app.add_flag("-v,--verbose", trace, "Print every SIP message on standard error");
    app.add_flag("--status", status, "Ask the running one what its lines do (JSON), and end");
    app.footer("\nExit status: 0 ended by a signal, 1 bad options or configuration, 2 can't listen, no status.");
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? 0 : exit_bad_configuration;
    }
    std::ifstream in(file, std::ios::binary);
    std::string const text{std::istreambuf_iterator<char>(in), {}};
    auto const read = fxsphone::read_configuration(text, file);
    if (!read.settings) {
        std::fprintf(stderr, "%s\n", read.problem.c_str());
        return exit_bad_configuration;
    }
    if (check) {
        std::printf("%s: good, lines: %zu\n", file.c_str(), read.settings->telephones.size());
        return 0;
    }
    if (status)
        return print_status(read.settings->status_socket);
    return serve(*read.settings, trace);
}
