#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "lib/str.h"
#include "media/channel.h"

/// What the fuzz targets share. A target is a file with LLVMFuzzerTestOneInput (https://llvm.org/docs/LibFuzzer.html);
/// it links with libFuzzer in the `fuzz` preset and with replay.cpp, which feeds it the committed inputs, elsewhere.

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

/// Ends the program, sanitizers or not.
#define FUZZ_CHECK(condition) \
    ((condition) ? void()     \
                 : (std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition), std::abort()))

/// Takes values off the front of an input; an exhausted one gives zeros and empty strings.
class fuzz_input {
public:
    fuzz_input(std::uint8_t const* data, std::size_t size) : at(data), end(data + size) {}

    bool empty() const { return at == end; }
    unsigned byte() { return empty() ? 0u : *at++; }
    unsigned word() {
        unsigned const high = byte();
        return high << 8 | byte();
    }
    /// The next n bytes, or as many as there are.
    str bytes(unsigned n);
    /// The next piece: 16 bits of length, then its bytes.
    str piece() { return bytes(word()); }

private:
    std::uint8_t const* at;
    std::uint8_t const* end;
};

/// The channel under test, set up as a call: all payload types but 127 mapped to codecs 0..7, an SSRC, all extended
/// report blocks, a destination where nobody listens. Its clock is owned by the target.
channel& fuzz_channel();
/// Lets time pass on the process clock, and fires what is due.
void fuzz_advance(unsigned hundredths);
/// Plays n blocks, checking each.
void fuzz_play(channel& tested, unsigned n);
/// A report, so that what was received is evaluated.
void fuzz_report(channel& tested);
