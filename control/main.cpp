#include <csignal>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "control/fxs_pipe.h"
#include "control/main_loop.h"
#include "control/media_process.h"
#include "control/options.h"

namespace {

constexpr char version_text[] = "Version: 3159\n";

void close_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++)
        close(fd);
}

}  // namespace

int main(int argc, char** argv) {
    options chosen;
    switch (chosen.scan(argc, argv)) {
        case options::verdict::print_version: {
            [[maybe_unused]] ssize_t const written = write(STDERR_FILENO, version_text, strlen(version_text));
            return EXIT_SUCCESS;
        }
        case options::verdict::bad: return EXIT_FAILURE;
        case options::verdict::run: break;
    }
    if (chosen.log == 0)
        close_standard_descriptors();
    signal(SIGPIPE, SIG_IGN);
    if (!chosen.pipe.empty())
        open_fxs_pipe(chosen.pipe);
    start_media_process(chosen);
    main_loop();
}
