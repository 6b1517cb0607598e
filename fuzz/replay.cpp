// Feeds files to the fuzz targets, in order of their names. Arguments are directories named after a target, or files in
// such directories.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/fuzz_target.h"

namespace fs = std::filesystem;

static void replay(fs::path const& file) {
    std::string const name = file.parent_path().filename().string();
    std::ifstream stream(file, std::ios::binary);
    std::vector<char> const bytes{std::istreambuf_iterator<char>(stream), {}};
    fuzz_target const* const target = fuzz_target::find(name);
    if (!target)
        std::fprintf(stderr, "no target \"%s\"\n", name.c_str()), std::exit(1);
    fuzz_input input(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
    target->run(input);
}

int main(int argc, char** argv) {
    std::vector<fs::path> files;
    for (int i = 1; i < argc; i++) {
        if (fs::is_directory(argv[i]))
            files.insert(files.end(), fs::directory_iterator(argv[i]), {});
        else
            files.push_back(argv[i]);
    }
    std::sort(files.begin(), files.end());
    for (fs::path const& file : files)
        replay(file);
    std::printf("%zu inputs\n", files.size());
    return files.empty();
}
