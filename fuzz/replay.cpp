// Feeds inputs to the fuzz targets: files, in order of their names, and random ones that follow from a seed.
//
//     fuzz_replay [--runs N] [--seed N] PATH...
//
// A path is a directory named after a target, or a file in such a directory. Each directory's target gets as many
// random inputs as --runs says (none), from the seed (1) on.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "tests/support/dice.h"

namespace fs = std::filesystem;

namespace {

using contents = std::vector<std::uint8_t>;

contents read(fs::path const& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Any bytes, small numbers, or a few values and what separates texts; a piece of it repeated now and then.
contents random_input(unsigned seed) {
    dice random(seed);
    int const style = random.below(4);
    std::uint8_t values[24] = {' ', '\t', '\r', '\n', ':', '.', '-', '+', '=', '0', '1', '9', 0, 0xFF};
    std::generate(values + 14, std::end(values), [&] { return static_cast<std::uint8_t>(random.word()); });
    contents bytes;
    for (int left = 1 << random.between(2, 10); left > 0; left--) {
        int const any = random.below(style == 1 ? 16 : 256);
        bytes.push_back(style == 2 ? values[any % 24] : static_cast<std::uint8_t>(any));
        if (random.below(50) == 0)
            for (std::size_t at = static_cast<std::size_t>(random.below(static_cast<int>(bytes.size()))), n = 20;
                 n > 0 && left > 0; n--, left--)
                bytes.push_back(bytes[at++]);
    }
    return bytes;
}

char current[1000];  ///< what repeats the input that is running

void run(fs::path const& directory, std::string const& input, contents const& bytes) {
    std::string const name = directory.filename().string();
    std::snprintf(current, sizeof current, "repeat with: fuzz_replay %s\n", input.c_str());
    fuzz_target const* const target = fuzz_target::find(name);
    if (!target)
        std::fprintf(stderr, "no target \"%s\"\n", name.c_str()), std::exit(1);
    fuzz_input source(bytes.data(), bytes.size());
    target->run(source);
}

}  // namespace

/// Sanitizers end the program with SIGABRT too.
extern "C" char const* __asan_default_options() {
    return "abort_on_error=1";
}

int main(int argc, char** argv) {
    std::signal(SIGABRT, [](int) { std::fputs(current, stderr); });
    fuzz_target::choose_extensions();
    unsigned runs = 0, seed = 1;
    std::vector<fs::path> directories, files;
    for (int i = 1; i < argc; i++) {
        std::string const argument = argv[i];
        if ((argument == "--runs" || argument == "--seed") && i + 1 < argc)
            (argument == "--runs" ? runs : seed) = static_cast<unsigned>(std::stoul(argv[++i]));
        else if (fs::is_directory(argument))
            directories.push_back(argument);
        else
            files.push_back(argument);
    }
    for (fs::path const& directory : directories)
        files.insert(files.end(), fs::directory_iterator(directory), {});
    std::sort(files.begin(), files.end());
    for (fs::path const& file : files)
        run(file.parent_path(), file.string(), read(file));
    for (fs::path const& directory : directories)
        for (unsigned i = 0; i < runs; i++)
            run(directory, "--runs 1 --seed " + std::to_string(seed + i) + " " + directory.string(),
                random_input(seed + i));
    std::size_t const inputs = files.size() + directories.size() * runs;
    std::printf("%zu inputs\n", inputs);
    return inputs == 0;
}
