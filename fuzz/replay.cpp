// Feeds every file of the directories given as arguments to a fuzz target, in order of their names.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/fuzz_target.h"

int main(int argc, char** argv) {
    std::size_t replayed = 0;
    for (int i = 1; i < argc; i++) {
        std::vector<std::filesystem::path> files;
        for (auto const& entry : std::filesystem::recursive_directory_iterator(argv[i]))
            if (entry.is_regular_file())
                files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (std::filesystem::path const& file : files) {
            std::ifstream stream(file, std::ios::binary);
            std::vector<char> const bytes{std::istreambuf_iterator<char>(stream), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
            replayed++;
        }
    }
    std::printf("%zu inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
