// The entry points of libFuzzer (https://llvm.org/docs/LibFuzzer.html). The program's name chooses the target.

#include "fuzz/fuzz_target.h"

static fuzz_target const* chosen;

extern "C" int LLVMFuzzerInitialize(int*, char*** argv) {
    std::string const program = (*argv)[0], prefix = "fuzz_";
    chosen = fuzz_target::find(program.substr(program.rfind(prefix) + prefix.size()));
    fuzz_target::choose_extensions();
    if (chosen)
        return 0;
    std::fprintf(stderr, "%s: run it by the name of a target:", program.c_str());
    for (auto const* t = fuzz_target::first; t; t = t->next)
        std::fprintf(stderr, " fuzz_%s", t->name);
    std::fprintf(stderr, "\n");
    std::exit(1);
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    chosen->run(input);
    return 0;
}
