#include <csignal>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "control/fxs_pipe.h"
#include "control/main_loop.h"
#include "control/media_process.h"
#include "control/options.h"
#include "lib/datagram.h"
#include "lib/extensions.h"
#include "lib/sockets.h"

namespace {

constexpr char version_text[] = "Version: 3159\n";

constexpr char mute_text[] =
    "fxsmedia: the control port cannot be had (is another process on it?): no command will arrive\n";

void print(char const* text) {
    [[maybe_unused]] ssize_t const written = write(STDERR_FILENO, text, strlen(text));
}

void close_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++)
        close(fd);
}

}  // namespace

int main(int argc, char** argv) {
    options chosen;
    switch (chosen.scan(argc, argv)) {
        case options::verdict::print_version: print(version_text); return EXIT_SUCCESS;
        case options::verdict::print_extensions: print(extension_set::help().c_str()); return EXIT_SUCCESS;
        case options::verdict::bad: return EXIT_FAILURE;
        case options::verdict::run: break;
    }
    if (chosen.log == 0)
        close_standard_descriptors();
    signal(SIGPIPE, SIG_IGN);
    if (!chosen.pipe.empty())
        open_fxs_pipe(chosen.pipe);
    start_media_process(chosen);
    if (chosen.log != 0 && !utils::valid_socket(command_fd))
        print(mute_text);
    main_loop();
}
