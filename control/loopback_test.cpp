#include "control/loopback_test.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "dsp/devmgr.h"
#include "lib/pcm.h"
#include "lib/sockets.h"
#include "lib/str.h"

namespace {

constexpr char pattern_text[] = "loopbacktest";
constexpr int pattern_bytes = sizeof pattern_text - 1;
constexpr int most_blocks = 32;

str pattern_block() {
    str const text(pattern_text);
    return text + str('\0', pcm::block_bytes - text.length());
}

void write_block(int fd, str const& block) {
    [[maybe_unused]] ssize_t const written = write(fd, block.cbuffer(), static_cast<size_t>(block.length()));
}

void wait_until_readable(int fd) {
    pollfd readable{fd, POLLIN, 0};
    if (utils::valid_socket(fd))
        poll(&readable, 1, -1);
}

/// Looks for the pattern byte by byte and drops what does not start with it.
bool find_pattern(str& received) {
    for (; !received.empty(); received = received.substr(1))
        if (received.leftstr(pattern_bytes) == pattern_text)
            return true;
    return false;
}

}  // namespace

int loopback_test() {
    str path = tdm_device + str("0");
    int const fd = open(path.c_str(), O_RDWR);
    str const pattern = pattern_block();
    write_block(fd, pattern);
    bool found = false;
    str received;
    for (int i = 0; i < most_blocks && !found; i++) {
        unsigned char block[pcm::block_bytes] = {};
        wait_until_readable(fd);
        if (read(fd, block, sizeof block) > 0)
            received.append(block, pcm::block_bytes);
        found = find_pattern(received);
        write_block(fd, pattern);
    }
    close(fd);
    return found;
}
