#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "lib/str.h"
#include "media/channel.h"
#include "tests/support/manual_clock.h"

/// What the fuzz targets share. A target is a function of an input: FUZZ_TARGET(name) { ... input ... }. All of them
/// make up one program, which calls the one that it is named after (fuzz_rtp, libfuzzer.cpp) or replays committed
/// inputs through all of them (replay.cpp). The format of the inputs is the same on every machine.

/// Ends the program, sanitizers or not.
#define FUZZ_CHECK(condition) \
    ((condition) ? void() : (std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition), std::abort()))

/// Takes values off the front of an input; an exhausted one gives zeros and empty strings.
class fuzz_input {
public:
    fuzz_input(std::uint8_t const* data, std::size_t size) : at(data), end(data + size) {}

    /// For loops over the steps of an input: false at its end, or after `most` steps, so that none runs for long.
    bool more(int most = 500) { return at != end && steps++ < most; }
    unsigned byte() { return at == end ? 0u : *at++; }
    /// 0..n-1
    int below(unsigned n) { return static_cast<int>(byte() % n); }
    unsigned word() {
        unsigned const high = byte();
        return high << 8 | byte();
    }
    std::uint32_t long_word() {
        std::uint32_t const high = word();
        return high << 16 | word();
    }
    /// The next n bytes, or as many as there are.
    str bytes(unsigned n);
    /// The next piece: 16 bits of length, then its bytes.
    str piece() { return bytes(word()); }
    str rest() { return bytes(~0u); }

private:
    std::uint8_t const* at;
    std::uint8_t const* end;
    int steps = 0;
};

struct fuzz_target {
    char const* name;
    void (*run)(fuzz_input&);
    fuzz_target const* next;

    inline static fuzz_target const* first = nullptr;
    fuzz_target(char const* own_name, void (*function)(fuzz_input&)) : name(own_name), run(function), next(first) {
        first = this;
    }
    /// Null when there is none.
    static fuzz_target const* find(std::string const& name);
    /// Switches on the extensions that FXSMEDIA_EXTENSIONS of the environment names; before the first input.
    static void choose_extensions();
};

#define FUZZ_TARGET(name)                                       \
    static void fuzz_##name(fuzz_input&);                       \
    static fuzz_target const target_##name(#name, fuzz_##name); \
    static void fuzz_##name([[maybe_unused]] fuzz_input& input)

/// The channel under test, set up as a call while this lives: payload types mapped to codecs 0..7 in turn (127 is not),
/// an SSRC, all extended report blocks, no destination. Its clock is owned by the target. The end of the call must
/// leave nothing behind: no timeout, no callback, no block of memory more than before.
class fuzz_call {
public:
    fuzz_call();
    ~fuzz_call();
    fuzz_call(fuzz_call const&) = delete;
    fuzz_call& operator=(fuzz_call const&) = delete;

    /// Lets time pass on the process clock, and fires what is due.
    void advance(unsigned hundredths);
    /// Plays n blocks, checking each.
    void play(int n);
    /// A report, so that what was received is evaluated.
    void report();

private:
    manual_clock clock;

public:
    channel& tested;

private:
    std::uint64_t memory_before;
};
