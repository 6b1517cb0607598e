#include "bench/pool_calls.h"

#include "lib/str.h"

namespace {
long calls = 0;
}

long pool_calls() {
    return calls;
}

// The functions under their mangled names, as the linker's --wrap wants it.
extern "C" {
str::reference* __real__ZN3str18get_cstring_staticEiPS_(int size, str* owner);
void* __real__ZN3str6mallocEjb(unsigned size, bool array);
void* __real__Znwm(std::size_t size);

str::reference* __wrap__ZN3str18get_cstring_staticEiPS_(int size, str* owner) {
    calls++;
    return __real__ZN3str18get_cstring_staticEiPS_(size, owner);
}

void* __wrap__ZN3str6mallocEjb(unsigned size, bool array) {
    calls++;
    return __real__ZN3str6mallocEjb(size, array);
}

void* __wrap__Znwm(std::size_t size) {
    calls++;
    return __real__Znwm(size);
}
}
