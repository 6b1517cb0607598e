// The whole process in the hands of the driver of the simulated years (tests/sim/driver.h): the input decides on
// commands, media, devices, faults and time, within what calls are made of and beyond.

#include "fuzz/fuzz_target.h"
#include "tests/sim/driver.h"

namespace {

/// One byte for each decision between up to 256 things.
class bytes_decide final : public sim::decider {
public:
    explicit bytes_decide(fuzz_input& source) : input(source) {}
    std::uint32_t word() override { return input.word() * 0x9E3779B1u; }
    int below(int n) override {
        constexpr int chances = 1000;
        if (n == chances)
            return static_cast<int>(input.byte()) * chances / 256;
        return static_cast<int>((n <= 256 ? input.byte() : input.word()) % static_cast<unsigned>(n));
    }

private:
    fuzz_input& input;
};

}  // namespace

/// First what the driver decides on at its start. Each step: 1 byte of 20 ms blocks that pass behind it, 255: seconds;
/// then what the driver decides on.
FUZZ_TARGET(core) {
    bytes_decide decisions(input);
    sim::driver process(decisions, true, std::getenv("FXSMEDIA_VERBOSE") != nullptr);
    process.begin();
    while (input.more(60) && process.now() < 5 * sim::second) {
        unsigned const pause = input.byte();
        process.step(pause == 255 ? 3 * sim::second : pause % 8 * 20 * sim::ms);
    }
    process.finish();
}
