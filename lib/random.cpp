#include "lib/random.h"

#include <cstdlib>
#include <ctime>

#include <sys/random.h>
#include <unistd.h>

namespace utils {

int rand() {
    return ::rand();
}

str generate_randstr(int n) {
    str data(static_cast<unsigned char>(0), n);
    unsigned char* const out = data.buffer();
    for (int i = 0; i < n; i++)
        out[i] = static_cast<unsigned char>(rand());
    return data;
}

void seed_rand(unsigned seed) {
    srand(seed);
}

void seed_rand_from_system() {
    unsigned seed = 0;
    if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof seed)) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        seed = static_cast<unsigned>(now.tv_nsec) ^ static_cast<unsigned>(now.tv_sec) << 12 ^
               static_cast<unsigned>(getpid()) << 20;
    }
    seed_rand(seed);
}

}  // namespace utils
