#pragma once

#include "lib/str.h"

/// The one source of randomness: the system library's rand(). Good for ports, SSRCs and first sequence
/// numbers; not cryptographic.
namespace utils {

/// 0..RAND_MAX.
int rand();
/// n bytes, each the low 8 bits of one rand().
str generate_randstr(int n);
/// Seeds rand() from the system, so that two devices never draw the same ports, SSRCs and sequence numbers.
void seed_rand_from_system();
/// Seeds rand() with a known value, so that a run can be repeated.
void seed_rand(unsigned seed);

}  // namespace utils
