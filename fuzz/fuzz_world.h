#pragma once

#include <optional>

#include "fuzz/fuzz_target.h"
#include "tests/sim/world.h"

/// The whole process in the simulated world, for one input. Whatever it reports must be well formed, whatever it sends
/// is media unless call control sends something of its own; it must never block, misuse a descriptor or hoard memory.
/// At the end all calls are ended: then nothing may be open or scheduled, and no memory in use that was not before.
class fuzz_world : public sim::surroundings {
public:
    explicit fuzz_world(sim::settings const& chosen = {});
    ~fuzz_world() override;

    /// Lets time pass and checks what must hold at any time.
    void run_ms(int ms);

    void report(std::string_view datagram) override;
    void sent(sim::endpoint const& from, sim::endpoint const& to, std::string_view datagram) override;

    std::optional<sim::world> world;

protected:
    /// One message to call control, its value as it is.
    virtual void reported(int /*tag*/, str const& /*value*/) {}
    /// Call control sends data of its own from the media ports.
    bool tunnelling = false;
    /// The LED may blink on.
    bool blinking = false;

private:
    std::uint64_t memory_before;
};

inline std::string_view fuzz_view(str const& data) {
    return {reinterpret_cast<char const*>(data.cbuffer()), static_cast<std::size_t>(data.length())};
}
