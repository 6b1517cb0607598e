#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "sim/world.h"

/// A far end in the simulated world, in a call with the telephone on line 0: what it sends is heard there. Override
/// line() to hear it, wake() to send at the times that were asked for with world.at(), route() for a bad network.
class far_end : public sim::surroundings {
public:
    static constexpr sim::endpoint address = sim::v4(203, 0, 113, 9, 5000);

    void sent(sim::endpoint const& from, sim::endpoint const& to, std::string_view datagram) override;

protected:
    /// The call is up when this returns. `codec`: one of protocol::codec_number.
    far_end(std::uint64_t seed, int codec);

    /// An RTP packet: `number` from 0, `timestamp` in samples.
    static std::string rtp_packet(int number, int timestamp, std::string_view payload);
    /// Takes the network's path (route()).
    void transmit(std::string_view packet) { world.transmit(address, device, packet); }
    /// Arrives after this time, whatever the path.
    void deliver(std::string_view packet, std::int64_t delay_ns) { world.deliver(address, device, packet, delay_ns); }
    /// Since the call began.
    std::int64_t elapsed_ns() const { return world.now() - began; }

private:
    sim::endpoint device;  ///< where the process receives

protected:
    sim::world world;
    std::int64_t began = 0;  ///< in the world's time
};
